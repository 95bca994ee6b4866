"""Adds a row to a table: qnrescue-bench watch ... --on-end "add_to_table.py results.csv" """

import csv
import os
import sys
import time

with open(sys.argv[1], "a", encoding="utf-8", newline="") as table:
    csv.writer(table).writerow([time.strftime("%Y-%m-%d %H:%M:%S"), *(
        os.environ.get(f"QNRESCUE_{name}", "")
        for name in ("SLOT", "ECID", "SERIAL_NUMBER", "RESULT", "REASON", "SECONDS"))])
