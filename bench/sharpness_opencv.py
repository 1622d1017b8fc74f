#!/usr/bin/python3
"""The sharpness score done with OpenCV, as a peer for sharpness_bench: reduced-size decode
(1/2, 1/4 or 1/8, the smallest that covers the working size), grey, INTER_AREA resize to 1600 px on the long side, the
4-neighbour Laplacian, its variance over the same 12 x 12 tiles with one-pixel borders, and the
mean of the best three. Prints one "file score" line per file.

    sharpness_opencv.py THREADS FILE...
"""
import sys
from multiprocessing import Pool

import cv2
import numpy as np

MAX_SIDE = 1600
GRID = 12


def jpeg_size(path):
    """Width and height from the JPEG's frame header, without decoding."""
    with open(path, "rb") as f:
        data = f.read(1 << 16)
    i = 2
    while i + 9 < len(data):
        if data[i] != 0xFF:
            i += 1
            continue
        marker = data[i + 1]
        length = int.from_bytes(data[i + 2:i + 4], "big")
        if marker in (0xC0, 0xC1, 0xC2):
            return int.from_bytes(data[i + 7:i + 9], "big"), int.from_bytes(data[i + 5:i + 7], "big")
        i += 2 + length
    return None


def score(path):
    # The smallest reduced decode that still covers 1600 px.
    size = jpeg_size(path)
    if size is None:
        return path, None
    long_side = max(size)
    flag = cv2.IMREAD_GRAYSCALE
    for factor, f in ((8, cv2.IMREAD_REDUCED_GRAYSCALE_8), (4, cv2.IMREAD_REDUCED_GRAYSCALE_4),
                      (2, cv2.IMREAD_REDUCED_GRAYSCALE_2)):
        if long_side / factor >= MAX_SIDE:
            flag = f
            break
    grey = cv2.imread(path, flag)
    h, w = grey.shape
    s = min(MAX_SIDE / max(w, h), 1.0)
    W, H = max(int(w * s), 16), max(int(h * s), 16)
    if (W, H) != (w, h):
        grey = cv2.resize(grey, (W, H), interpolation=cv2.INTER_AREA)
    lap = cv2.Laplacian(grey, cv2.CV_32F, ksize=1)
    values = []
    for r in range(GRID):
        y0, y1 = max(r * H // GRID, 1), min((r + 1) * H // GRID, H - 1)
        for c in range(GRID):
            x0, x1 = max(c * W // GRID, 1), min((c + 1) * W // GRID, W - 1)
            if x0 + 2 < x1 and y0 + 2 < y1:
                values.append(float(lap[y0:y1, x0:x1].var()))
    values.sort(reverse=True)
    return path, sum(values[:3]) / 3


def main():
    threads = int(sys.argv[1])
    cv2.setNumThreads(1)
    with Pool(threads) as pool:
        for path, s in pool.imap(score, sys.argv[2:], chunksize=4):
            if s is None:
                print(f"{path} -", flush=False)
                sys.exit(1)
            print(f"{path} {s:.1f}")


if __name__ == "__main__":
    main()
