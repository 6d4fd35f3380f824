"""The lookup of a SIM's access points in databases of growing size: reading the file, and searching what it held."""

import json
import subprocess
import tempfile
from pathlib import Path

from tables import Table, ratio

DATABASE_SIZES = (10, 100, 1000, 10_000)
ENTRIES_A_NETWORK = 5
SCRIPT_PREFIX = b"var vela_apn_database = "  # 24 bytes, as many as the file's reader skips


def database(size: int) -> tuple[bytes, tuple[str, str]]:
    """A database in the web interface's format, and the codes of a network that stands at its end."""
    entries, codes = [], ("", "")
    for number in range(size):
        mcc, mnc = divmod(number // ENTRIES_A_NETWORK, 100)
        codes = (f"{200 + mcc:03d}", f"{mnc:02d}")
        entries.append({
            "-carrier": f"Network {number}", "-mcc": codes[0], "-mnc": codes[1], "-apn": f"internet{number}.example",
            "-type": "default,supl", "-user": "user", "-password": "password",
        })
    return SCRIPT_PREFIX + json.dumps({"apns": {"apn": entries}}).encode() + b";\n", codes


def bench_apn_lookup(build: Path) -> None:
    assert len(SCRIPT_PREFIX) == 24
    table = Table("apn", f"APN lookup, CPU time ({ENTRIES_A_NETWORK} entries are found in each)", "entries",
                  "file bytes", "reading us", "ns an entry", "ratio", "finding us", "ns an entry", "ratio")
    previous = None
    for size in DATABASE_SIZES:
        with tempfile.NamedTemporaryFile() as file:
            text, codes = database(size)
            file.write(text)
            file.flush()
            output = subprocess.run([build / "tests/bench/parsers", "apn", file.name, *codes], check=True, text=True,
                                    stdout=subprocess.PIPE).stdout
        read, find, found = output.split()
        if int(found) != ENTRIES_A_NETWORK:
            raise SystemExit(f"{found} entries were found in a database of {size}")
        each = [float(read) / size, float(find) / size]
        ratios = [ratio(now, before) for now, before in zip(each, previous or (None, None))]
        table.row(f"{size:,}", f"{len(text):,}", f"{float(read) / 1000:.1f}", f"{each[0]:.1f}", ratios[0],
                  f"{float(find) / 1000:.2f}", f"{each[1]:.1f}", ratios[1])
        previous = each
