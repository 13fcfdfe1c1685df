#!/usr/bin/env python3
"""Judges what the benchmark programs measured and writes the page about it.

Prints what is above its target or missing; exit code 1 if that is a failure of this run.
"""

import argparse
import pathlib
import posixpath
import re
import sys

import document
import machine
import measurements
import plots
import targets


def arguments():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("results", nargs="+", help="JSON output of the programs")
    parser.add_argument("--targets", required=True, help="CSV file of the ratios to hold")
    parser.add_argument("--notes", help="folder of Markdown files on where the time goes")
    parser.add_argument("--page", required=True, help="Markdown file to write")
    parser.add_argument("--run", required=True, help="how the programs were run, for the page")
    parser.add_argument("--full", action="store_true", help="a missing row is a failure")
    return parser.parse_args()


def with_links_from_above(text, folder):
    """A page of @p folder as part of one beside that folder: its links lead to the same places."""

    def moved(match):
        target = match[1]
        if re.match(r"#|[a-z]+:", target):
            return match[0]
        return f"]({posixpath.normpath(posixpath.join(folder, target))})"

    return re.sub(r"\]\(([^)\s]+)\)", moved, text)


def below_a_section(text):
    """A text with a title of its own, as part of a section of the second level."""
    blocks = re.split(r"(^```.*?^```$)", text, flags=re.M | re.S)
    return "".join(
        block if block.startswith("```") else re.sub(r"^(#+ )", r"##\1", block, flags=re.M)
        for block in blocks
    )


def read_notes(folder):
    paths = sorted(pathlib.Path(folder).glob("*.md")) if folder else []
    return [
        below_a_section(
            with_links_from_above(path.read_text(encoding="utf-8").strip(), path.parent.name)
        )
        for path in paths
    ]


def write_pictures(folder, measured):
    folder.mkdir(parents=True, exist_ok=True)
    for plot in plots.PLOTS:
        picture = plots.draw(plot, measured)
        if picture is not None:
            (folder / f"growth-{plot.key}.svg").write_text(picture, encoding="utf-8")


def tell(verdict):
    target = verdict.target
    subject = f"{target.row} beside {target.beside}"
    if verdict.state is targets.State.MISSING:
        return f"missing  {subject}"
    return (f"above    {subject}: {document.number(verdict.figure)},"
            f" at most {target.limit:,g}")


def main():
    options = arguments()
    measured = measurements.load(options.results)
    verdicts = targets.judge(targets.load(options.targets), measured)
    page = pathlib.Path(options.page)
    page.parent.mkdir(parents=True, exist_ok=True)
    write_pictures(page.parent / "pictures", measured)
    page.write_text(document.compose(machine.describe(), options.run, verdicts, measured,
                                     read_notes(options.notes)), encoding="utf-8")
    failed = targets.failures(verdicts, options.full)
    for verdict in failed:
        print(tell(verdict))
    for error in measured.errors:
        print(f"failed   {error}")
    held = sum(verdict.state is targets.State.HELD for verdict in verdicts)
    print(f"{held} of {len(verdicts)} targets held; the page: {page}")
    return 1 if failed or measured.errors else 0


if __name__ == "__main__":
    sys.exit(main())
