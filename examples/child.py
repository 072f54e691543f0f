#!/usr/bin/env python3
"""Keeps optimize_host as a child and makes calls through it. Run by itself, lists what is on.

A program that need not load the module copies the class and nothing else: optimize_host waits for
other calls, records and verifies, and a call that has begun is carried to its end.
"""
import json
import subprocess


class OptimizeHost:
    """A running optimize_host. Not for several threads at once; each may have its own."""

    def __init__(self, *options, program="optimize_host"):
        """Options are those of the command line, such as "-C", folder. Messages go to stderr."""
        self._child = subprocess.Popen(
            [program, *options, "--json", "-"], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
            encoding="utf-8")

    def call(self, *words):
        """Makes a call, such as call("optimize_service", "cups", 30). Returns its replies, as json.md
        describes them. The last one is "final" or, if the call was not made, "none"; "error" in it
        says why the call failed, "not_handled" what was not done. Raises EOFError or OSError if the
        program has ended."""
        line = " ".join(map(str, words))
        if not line.strip() or line.lstrip().startswith("#") or "\n" in line:
            raise ValueError(f"not a call: {line!r}")
        self._child.stdin.write(line + "\n")
        self._child.stdin.flush()
        replies = []
        for text in self._child.stdout:
            replies.append(json.loads(text))
            if replies[-1].get("reply") in ("final", "none"):
                return replies
        raise EOFError(f"optimize_host has ended with status {self._child.wait()}")

    def close(self):
        """Ends the program after its last call. Returns its exit status."""
        self._child.communicate()
        return self._child.returncode


if __name__ == "__main__":
    host = OptimizeHost()
    for reply in host.call("ls_service"):
        for service in reply.get("services", []):
            if service["op"] == 0:
                print(service["id"], service["name"])
    raise SystemExit(host.close())
