"""Measures what bench/tables.md names and prints the tables: report.py REPETITIONS PROGRAM...

The benchmarks of a section run in turn, each in a process of its own, before any of them runs again.
So a busy machine hits all contenders of a row alike. Ratios are taken within a repetition.
Ends with 1 when a row lacks a figure.
"""
import json
import pathlib
import re
import subprocess
import sys
from statistics import StatisticsError

from table import SECONDS, Table

HERE = pathlib.Path(__file__).parent


def benchmark_results(output):
    """Yields each benchmark with its fields, times in seconds."""
    for result in json.loads(output)["benchmarks"]:
        if "error_message" in result:
            raise ValueError(result["error_message"])
        unit_of = {"time": result["time_unit"], "ms": "ms", "us": "us"}
        yield result["name"], {
            field: value * SECONDS[unit] if (unit := unit_of.get(field.split("_")[-1])) else value
            for field, value in result.items()}


def failover_results(output):
    """Yields "FAULT/WAY" with the time; None where there was no answer."""
    (_, *ways), _, *rows = (line.strip("| ").split(" | ") for line in output.splitlines())
    for fault, *cells in rows:
        for way, cell in zip(ways, cells):
            time = None if cell == "no answer" else float(cell.split()[0])
            yield f"{fault}/{way}", {"real_time": time}


def command_of(program, benchmark):
    """The failover program runs as a whole."""
    options = ["1"] if program == "failover" else [
        f"--benchmark_filter=^{benchmark}$", "--benchmark_min_time=0.05", "--benchmark_format=json"]
    return (str(HERE.parent / f"build/bench/bench/tarvel_bench_{program}"), *options)


def run(command):
    """Returns the fields of each benchmark. Of a command that fails there are none."""
    done = subprocess.run(command, capture_output=True, text=True)
    results = failover_results if command[0].endswith("failover") else benchmark_results
    try:
        done.check_returncode()
        return dict(results(done.stdout))
    except (subprocess.CalledProcessError, ValueError) as error:
        print(*command, error, done.stderr, sep="\n", file=sys.stderr)
        return {}


def fill(section, programs, samples_of):
    """Returns the section without the rows of other programs, and the rows that lack a figure."""
    title, *blocks = section.strip().split("\n\n")
    texts, lacking = [], []
    for block in blocks:
        heading, dashes, *rows = block.splitlines()
        table, filled = Table(samples_of), []
        for row in rows:
            if row.startswith(": "):
                table.name_benchmarks(*row[2:].split(" ", 1))
            elif table.program in programs:
                try:
                    filled.append(table.fill(row))
                except StatisticsError:
                    lacking.append(row)
        if filled:
            texts.append("\n".join([heading, dashes, *filled]))
    return "\n\n".join([f"## {title}", *texts]), lacking


def report(section, programs, repetitions):
    """Prints the section. Returns whether all its rows have their figures."""
    commands = {}

    def note(program, benchmark, _):
        commands[command_of(program, benchmark)] = None
        return [1.0]

    fill(section, programs, note)
    if not commands:
        return True
    runs = [dict(item for command in commands for item in run(command).items())
            for _ in range(repetitions)]

    def samples_of(_, benchmark, field):
        complete = all(benchmark in results for results in runs)
        return [results[benchmark][field] for results in runs] if complete else []

    text, lacking = fill(section, programs, samples_of)
    print(text, end="\n\n", flush=True)
    for row in lacking:
        print("lacks a figure:", row, file=sys.stderr)
    return not lacking


def main(repetitions, *programs):
    text = (HERE / "tables.md").read_text()
    if unknown := set(programs) - set(re.findall("^: ([a-z]+) ", text, re.MULTILINE)):
        sys.exit(f"tables.md has no row for {', '.join(unknown)}")
    sections = text.split("\n## ")[1:]
    complete = [report(section, programs, int(repetitions)) for section in sections]
    sys.exit(0 if all(complete) else 1)


main(*sys.argv[1:])
