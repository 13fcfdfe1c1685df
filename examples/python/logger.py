"""Keeps the sets of a region in a file, as CSV or as arrays of numpy.

logger.py DESCRIPTION FILE [URL...], where FILE ends in .csv or .npz; --count N and --interval SECONDS.
"""

import argparse
import csv
import time

import tessel


def arguments():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("description")
    parser.add_argument("file", help="ends in .csv or .npz")
    parser.add_argument("urls", nargs="*", help="leaves and nodes; without one, everything")
    parser.add_argument("--count", type=int, default=0, help="end after so many sets; 0: with Ctrl-C")
    parser.add_argument("--interval", type=float, default=0.0, help="least seconds between two sets")
    return parser.parse_args()


#! [sets]
def sets(region, urls, interval, count):
    """The sets with their times, until there were enough of them or somebody presses Ctrl-C."""
    try:
        for number, taken in enumerate(region.watch(urls or None, interval), start=1):
            yield time.time(), taken
            if number == count:
                return
    except KeyboardInterrupt:
        return


#! [sets]


def write_csv(path, rows):
    """A line a value, so that states have a column of their own."""
    with open(path, "w", newline="", encoding="utf-8") as file:
        writer = csv.writer(file)
        writer.writerow(["time", "generation", "url", "value", "state", "unit"])
        for moment, taken in rows:
            for url, (value, state, unit) in taken.items():
                writer.writerow([f"{moment:.3f}", taken.generation, url, value, state.name, unit])


#! [arrays]
def write_arrays(path, rows):
    """A row a set and a column a value, NaN where it is not valid, and the states beside."""
    import numpy

    times, urls, values, states = [], (), [], []
    for moment, taken in rows:
        times.append(moment)
        urls = taken.urls
        values.append(taken.values_array())
        states.append(taken.states_array())
    numpy.savez_compressed(path, time=times, url=urls, value=values, state=states)


#! [arrays]


def main():
    asked = arguments()
    write = write_arrays if asked.file.endswith(".npz") else write_csv
    with tessel.attach(asked.description) as region:
        write(asked.file, sets(region, asked.urls, asked.interval, asked.count))


if __name__ == "__main__":
    main()
