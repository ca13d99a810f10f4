"""Starts `diagctl serve` for the raw HTTP tests and reads the port it picked from its log."""
import re
import subprocess
import time


def start(command, errors_path):
    """Runs the serve command (listening on 127.0.0.1:0) with its error stream written to
    errors_path; returns the process and its port. Ends the test when no port is announced
    within 10 s."""
    errors = open(errors_path, "w+")
    process = subprocess.Popen(command, stderr=errors)
    for _ in range(100):
        errors.seek(0)
        found = re.search(r"http://127\.0\.0\.1:(\d+)/cimom", errors.read())
        if found:
            return process, int(found.group(1))
        time.sleep(0.1)
    process.terminate()
    process.wait(10)
    errors.seek(0)
    raise SystemExit(errors.read() + "FAIL: the server did not start")
