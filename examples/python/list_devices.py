"""Lists the attached devices: list_devices.py [COMMAND...], by default qnrescue."""

import sys

from qnrescue.tool import Tool, ToolFailure

tool = Tool(sys.argv[1:] or "qnrescue")
try:
    for ecid in tool.list_devices():
        info = tool.device_info(ecid)
        print(ecid, info.serial_number or "-", f"{info.location_id:08X}")
except ToolFailure as failure:
    sys.exit(str(failure))
