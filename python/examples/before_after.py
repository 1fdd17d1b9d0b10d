"""A burst before and after: one frame beside the merge, and how many frames each place got.

    python3 before_after.py IMG_1.jpg IMG_2.jpg IMG_3.jpg [-o picture.png]
"""

# %% The merge
import argparse

import numpy as np
from PIL import Image

import tessaline4

parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
parser.add_argument("frames", nargs="+", metavar="FRAME")
parser.add_argument("-o", "--output", help="write the figure instead of showing it")
arguments = parser.parse_args()

result = tessaline4.merge(arguments.frames, progress=lambda percent: print(f"\r{percent} %", end="", flush=True))
print(f"\r{result.seconds:.2f} s")
for path, frame in zip(arguments.frames, result.frames):
    print(f"{path}: {frame.status.name.lower()}, {frame.share:.0%} of it used")

# %% The middle of both, pixel for pixel
import matplotlib.pyplot as plt

before = np.asarray(Image.open(arguments.frames[result.base]).convert("RGB"))
after = np.asarray(result.picture)
height, width = before.shape[:2]
middle = (slice(height // 2 - 120, height // 2 + 120), slice(width // 2 - 160, width // 2 + 160))

figure, (left, right, below) = plt.subplots(1, 3, figsize=(15, 4.2), layout="constrained")
left.imshow(before[middle])
left.set_title(f"one frame, noise {result.fine.noise[0]:.1f}")
right.imshow(after[middle])
merged = sum(frame.status == tessaline4.FrameStatus.MERGED for frame in result.frames)
right.set_title(f"{merged} frames merged")

# %% Where frames were kept out
drawn = below.imshow(result.fine.coverage, vmin=1, vmax=len(result.frames), cmap="viridis")
below.set_title("frames at each place of the whole picture")
figure.colorbar(drawn, ax=below)
for axes in (left, right, below):
    axes.set_axis_off()
if arguments.output:
    figure.savefig(arguments.output, dpi=120)
else:
    plt.show()
