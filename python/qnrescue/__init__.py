"""Drives the recovery and restore tool qnrescue.

`desk.Desk` orders restores as jobs, which outlive the program that orders them. `tool.Tool` and
`aio.AsyncTool` run the tool itself."""
