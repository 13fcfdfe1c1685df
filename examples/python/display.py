"""Shows the values of a region as they are published: display.py DESCRIPTION [URL...]"""

import sys

import tessel


def show(taken):
    print(f"--- set {taken.generation}")
    for url, (value, state, unit) in taken.items():
        print(f"{url:30} {value if state.is_valid else state.name} {unit}", flush=True)


if __name__ == "__main__":
    path, *urls = sys.argv[1:]
    with tessel.attach(path) as region:
        try:
            for taken in region.watch(urls or None, interval=0.5):
                show(taken)
        except KeyboardInterrupt:
            pass
