#!/usr/bin/python3 -B
"""The workflows are sound: runners, scripts, passes and presets that they name exist, and what
they run is shell.

usage: check-workflows.py PROJECT-FOLDER
"""

import json
import os
import re
import subprocess
import sys
from pathlib import Path

try:
    import yaml
except ImportError:
    print("skipped: Python's yaml module is not installed", file=sys.stderr)
    sys.exit(77)

RUNNERS = {"ubuntu-24.04", "ubuntu-24.04-arm", "macos-15", "macos-15-intel"}

root = Path(sys.argv[1])
problems = []


def expect(condition, where, what):
    if not condition:
        problems.append(f"{where}: {what}")


def runners_of(job):
    """By the job's own word, or by its matrix."""
    named = job["runs-on"]
    variable = re.fullmatch(r"\$\{\{ matrix\.(\w+) \}\}", named)
    return set(job["strategy"]["matrix"][variable[1]]) if variable else {named}


def check_command(where, text, presets):
    # What GitHub fills in is a word.
    shell = subprocess.run(["bash", "-n"], input=re.sub(r"\$\{\{.*?\}\}", "word", text), text=True,
                           capture_output=True, check=False)
    expect(shell.returncode == 0, where, f"no shell: {shell.stderr}")
    for script in re.findall(r"(?:^|(?<=\s))((?:scripts|packaging|tests|\.ci)/[\w./-]+)", text):
        expect(os.access(root / script, os.X_OK), where, f"there is no script {script}")
    for preset in re.findall(r"--preset (\S+)", text):
        expect(preset in presets, where, f"there is no preset {preset}")
    for names in re.findall(r"\.ci/run((?: \w+)*)", text):
        for name in names.split():
            expect(f"\npass_{name}() {{\n" in (root / ".ci/run").read_text("utf-8"), where,
                   f".ci/run has no pass {name}")


def check_job(where, job, jobs, presets):
    needs = job.get("needs", [])
    for needed in [needs] if isinstance(needs, str) else needs:
        expect(needed in jobs, where, f"needs {needed}, which there is not")
    if "uses" in job:
        expect((root / job["uses"]).is_file(), where, f"there is no {job['uses']}")
        return 0
    expect(runners_of(job) <= RUNNERS, where, f"unknown runners: {runners_of(job) - RUNNERS}")
    expect("timeout-minutes" in job, where, "may run for ever")
    for step in job["steps"]:
        expect(("run" in step) != ("uses" in step), where, f"a step does not run one thing: {step}")
        check_command(where, step.get("run", ""), presets)
    return len(job["steps"])


def main():
    presets = {preset["name"] for preset in
               json.loads((root / "CMakePresets.json").read_text("utf-8"))["configurePresets"]}
    steps = 0
    for file in sorted((root / ".github/workflows").glob("*.yml")):
        jobs = yaml.safe_load(file.read_text("utf-8"))["jobs"]
        for name, job in jobs.items():
            steps += check_job(f"{file.name}, {name}", job, jobs, presets)
    expect(steps >= 10, "workflows", f"only {steps} steps were found")
    if problems:
        sys.exit("\n".join(problems))


main()
