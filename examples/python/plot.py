"""Draws what some values were over a time: plot.py DESCRIPTION PICTURE SECONDS URL..."""

import sys
import time

import matplotlib

matplotlib.use("Agg")  # into a file, without a screen
import matplotlib.pyplot as plt  # noqa: E402
import tessel  # noqa: E402


#! [collect]
def collect(region, urls, seconds):
    """Times since the beginning, and a list of values a URL, NaN where one was not valid."""
    begin, times, rows = time.monotonic(), [], []
    for taken in region.watch(urls):
        times.append(time.monotonic() - begin)
        rows.append(taken.values_array())
        if times[-1] >= seconds:
            return times, list(zip(*rows))


#! [collect]


# Texts of an SVG stay texts, which the browser sets.
plt.rcParams["svg.fonttype"] = "none"


def draw(picture, region, urls, times, columns):
    figure, axes = plt.subplots(len(urls), sharex=True, squeeze=False, figsize=(7, 1 + 1.4 * len(urls)))
    for url, column, axis in zip(urls, columns, axes[:, 0]):
        # A value holds until the next one, and where there is none the line has a gap.
        axis.step(times, column, where="post")
        axis.set_title(url, fontsize="medium", loc="left")
        axis.set_ylabel(region.describe(url).unit)
        axis.grid(alpha=0.3)
    axes[-1, 0].set_xlabel("s")
    figure.tight_layout()
    figure.savefig(picture, metadata={"Date": None} if picture.endswith(".svg") else None)


def main():
    description, picture, seconds, *urls = sys.argv[1:]
    with tessel.attach(description) as region:
        times, columns = collect(region, urls, float(seconds))
        draw(picture, region, urls, times, columns)


if __name__ == "__main__":
    main()
