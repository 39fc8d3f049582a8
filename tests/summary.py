#!/usr/bin/env python3
"""Adds up the results of several ctest runs: what failed, what was skipped and why, and one closing line."""
import sys
import xml.etree.ElementTree as ET

passed = failed = skipped = 0
for path in sys.argv[1:]:
    build = path.split("/")[-2]
    for case in ET.parse(path).getroot().iter("testcase"):
        status = case.get("status")
        name = f"{build} {case.get('name')}"
        output = case.findtext("system-out") or ""
        if status == "run":
            passed += 1
        elif status in ("notrun", "disabled"):
            skipped += 1
            reasons = [line.strip() for line in output.splitlines() if "skip" in line.lower() or "SKIPPED" in line]
            print(f"skipped: {name}: {reasons[-1] if reasons else 'no reason given'}")
        else:
            failed += 1
            print(f"failed:  {name}")
if passed + failed == 0:
    print("no test ran")
    sys.exit(1)
print(f"{passed} passed, {failed} failed, {skipped} skipped")
sys.exit(1 if failed else 0)
