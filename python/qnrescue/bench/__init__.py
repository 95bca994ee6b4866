"""The command qnrescue-bench."""
