"""When reports were written into the files of the jobs."""

import os
import re
import threading

PROGRESS = re.compile(rb"<key>Progress</key>\s*<integer>(\d+)</integer>")
# How often to look, in seconds. A file says itself when it was written.
PAUSE = 0.2


class ReportTimes:
    """Collects them from when it is made until it is closed: progress and time, by job. Of reports
    that come between two looks, only the latest is there."""

    def __init__(self, files):
        self.found = {job: [] for job in files}
        self.files = files
        self.places = dict.fromkeys(files, (0, 0))  # how far it is read, and when it was written
        self.stopped = threading.Event()
        self.thread = threading.Thread(target=self.run)
        self.thread.start()

    def run(self):
        while not self.stopped.wait(PAUSE):
            for job, path in self.files.items():
                try:
                    self.look(job, path)
                except FileNotFoundError:
                    pass

    def look(self, job, path):
        status = os.stat(path)
        offset, written = self.places[job]
        if status.st_mtime_ns == written:
            return
        with open(path, "rb") as file:
            file.seek(offset)
            text = file.read(1 << 16).partition(b"\0")[0]
        if os.stat(path).st_mtime_ns != status.st_mtime_ns:
            return  # next time
        # At the end the file is cut, which is no report.
        if status.st_size > offset + len(text) and (found := PROGRESS.findall(text)):
            self.found[job].append((int(found[-1]), status.st_mtime_ns / 1e9))
        self.places[job] = offset + len(text), status.st_mtime_ns

    def close(self):
        self.stopped.set()
        self.thread.join()


def delays(reports, shown):
    """The seconds from each report to the first showing of it, or of a later one of its job, in
    ascending order. Both are progress and time, by job. Raises AssertionError if a report was never
    shown, or a job has none."""
    found = []
    for job, written in reports.items():
        if not written:
            raise AssertionError(f"{job} has no reports")
        for progress, at in written:
            later = [each for value, each in shown[job] if value >= progress and each >= at]
            if not later:
                raise AssertionError(f"{job}: {progress} % was not shown after {at}")
            found.append(min(later) - at)
    return sorted(found)
