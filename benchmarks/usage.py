"""The processor time and the memory of groups of processes."""

import time

import psutil


class Usage:
    """What has been used until now: seconds of a processor, by group; those of the children that
    have ended are apart."""

    def __init__(self, groups, counts):
        self.at = time.monotonic()
        self.counts = counts
        self.own = {}
        self.children = {}
        for name, pids in groups.items():
            times = [psutil.Process(pid).cpu_times() for pid in pids]
            self.own[name] = sum(each.user + each.system for each in times)
            self.children[name] = sum(each.children_user + each.children_system for each in times)

    def since(self, before):
        """The seconds, the processors that were busy, and the counts in a second."""
        seconds = self.at - before.at
        shares = {name: (self.own[name] - before.own[name]) / seconds for name in self.own}
        for name, used in self.children.items():
            shares[f"tools of {name}"] = (used - before.children[name]) / seconds
        rates = {name: (each - before.counts[name]) / seconds
                 for name, each in self.counts.items()}
        return {"seconds": seconds, "processors": shares, "rates": rates}


def memory(groups):
    """The bytes of memory of a process, on average, by group; what several processes share counts
    in parts."""
    return {name: sum(psutil.Process(pid).memory_full_info().pss for pid in pids) / len(pids)
            for name, pids in groups.items()}
