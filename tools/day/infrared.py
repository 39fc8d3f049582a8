#!/usr/bin/env python3
"""How much near infrared a light has beside a lux of it, in the unit that a bare colour sensor answers as one lux of
daylight: Planck's law, weighed with a silicon sensor's sensitivity and its colour dyes. Prints a line for each
temperature; docs/light.md uses the results."""
import math

# Relative quantum efficiency of a silicon image sensor by nanometres, typical of data sheets.
SILICON = ((400, 0.45), (450, 0.60), (550, 0.65), (650, 0.60), (700, 0.52), (800, 0.33), (850, 0.25), (900, 0.16), (950, 0.08),
           (1000, 0.03), (1050, 0.0))
EDGE = 680    # nm, where visible light ends for the sensor and an IR-cut filter closes
DAYLIGHT = 5500  # K, of sun and sky together


def silicon(nm):
    for (a, low), (b, high) in zip(SILICON, SILICON[1:]):
        if a <= nm <= b:
            return low + (high - low) * (nm - a) / (b - a)
    return 0.0


def dye(nm):
    """One of three colours passes a third of visible light; towards 800 nm every dye becomes clear."""
    return 1 / 3 if nm < EDGE else 1 / 3 + 2 / 3 * min(1, (nm - EDGE) / 120)


def eye(nm):
    """The luminosity function, as a bell around 555 nm."""
    return math.exp(-0.5 * ((nm - 555) / 42) ** 2)


def planck(nm, kelvin):
    metres = nm * 1e-9
    return 1 / (metres ** 5 * math.expm1(6.626e-34 * 2.998e8 / (metres * 1.381e-23 * kelvin)))


def integral(kelvin, weight, low, high):
    return sum(planck(nm, kelvin) * weight(nm) for nm in range(low, high))


def signal(nm):
    return silicon(nm) * dye(nm)


def infrared_beside_a_lux(kelvin):
    lux = integral(kelvin, eye, 400, 700)
    visible_of_daylight = integral(DAYLIGHT, signal, 400, EDGE) / integral(DAYLIGHT, eye, 400, 700)
    return integral(kelvin, signal, EDGE, 1050) / lux / visible_of_daylight


for temperature, name in ((6500, "overcast sky"), (5500, "sun and sky"), (3200, "halogen"), (2700, "filament")):
    print(f"{temperature} K  {infrared_beside_a_lux(temperature):.2f}  {name}")
