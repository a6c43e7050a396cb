"""Writes docs/benchmarks.md and its charts from the results of run.py.

    report.py RESULTS DIRECTORY

Creates benchmarks.md and charts/*.svg in DIRECTORY.
"""

import sys

from charts import charts
from page import page
from results import Results


def main():
    path, directory = sys.argv[1:]
    results = Results(path)
    charts(results, directory + "/charts")
    with open(directory + "/benchmarks.md", "w", encoding="utf-8") as file:
        file.write(page(results))


if __name__ == "__main__":
    main()
