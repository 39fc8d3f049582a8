"""The scoreboard: plays scenes to the real daemon and holds its broadcasts against what the scene knows to be true.

rules.py   what is right, missed and false; knows no files and no programs
play.py    the daemon on a scene, in a root and a network of its own
board.py   sums, tables, the page docs/scoreboard.md
chart.py   its pictures
keep.py    the result that is kept, and what is worse than it
"""
