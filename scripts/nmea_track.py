#!/usr/bin/env python3
"""Writes the drive-test demo's GPS track as NMEA: a fix a second along a
short loop of streets, each fix as $GPRMC and $GPGGA with correct checksums,
for gpsfake to replay into gpsd.

    scripts/nmea_track.py > tools/fieldtest/drive_track.nmea"""

import math

START_LAT, START_LON = 52.5163, 13.3777  # degrees
FIXES = 36


def checksum(body):
    value = 0
    for c in body.encode():
        value ^= c
    return f"{value:02X}"


def sentence(body):
    return f"${body}*{checksum(body)}"


def nmea_angle(value, degree_digits, hemispheres):
    hemisphere = hemispheres[0] if value >= 0 else hemispheres[1]
    value = abs(value)
    degrees = int(value)
    minutes = (value - degrees) * 60
    return f"{degrees:0{degree_digits}d}{minutes:07.4f}", hemisphere


def main():
    for i in range(FIXES):
        # A loop of about 400 m across, driven once.
        angle = 2 * math.pi * i / FIXES
        lat = START_LAT + 0.0018 * math.sin(angle)
        lon = START_LON + 0.0030 * (1 - math.cos(angle))
        hhmmss = f"12{i // 60:02d}{i % 60:02d}.00"
        lat_text, ns = nmea_angle(lat, 2, "NS")
        lon_text, ew = nmea_angle(lon, 3, "EW")
        print(sentence(f"GPRMC,{hhmmss},A,{lat_text},{ns},{lon_text},{ew},018.5,{(i * 10) % 360:05.1f},"
                       f"100624,,,A"))
        print(sentence(f"GPGGA,{hhmmss},{lat_text},{ns},{lon_text},{ew},1,08,0.9,34.0,M,39.0,M,,"))


if __name__ == "__main__":
    main()
