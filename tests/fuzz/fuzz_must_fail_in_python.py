"""Fails, so that it shows when a failure is not noticed."""

raise AssertionError("as it has to")
