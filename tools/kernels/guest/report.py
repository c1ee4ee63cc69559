"""A pytest plugin that prints one line per test with its outcome and duration."""

import os
import sys


def pytest_report_teststatus(report):
    # The usual progress dots would be mixed into these lines.
    counted = report.when == "call" or not report.passed
    return report.outcome if counted else "", "", ""


class Reporter:
    def __init__(self):
        self._seconds = 0.0
        self._outcome = "passed"
        self._reason = ""

    def pytest_runtest_logstart(self, nodeid, location):
        self._seconds, self._outcome, self._reason = 0.0, "passed", ""

    def pytest_runtest_logreport(self, report):
        self._seconds += report.duration
        if report.skipped:
            self._outcome = "skipped"
            self._reason = report.longrepr[2].removeprefix("Skipped: ")
        elif report.failed:
            self._outcome = "failed"

    def pytest_runtest_logfinish(self, nodeid, location):
        fields = (nodeid.removeprefix("tests/e2e/"), self._outcome, f"{self._seconds:.1f}", self._reason)
        sys.__stdout__.write("\nRESULT\t" + "\t".join(fields) + "\n")
        sys.__stdout__.flush()


def pytest_configure(config):
    config.pluginmanager.register(Reporter())


def pytest_sessionfinish():
    print(f"\nGUEST slowness {os.environ.get('ORLIM_E2E_SLOWNESS', 'not measured')}", file=sys.__stdout__, flush=True)
