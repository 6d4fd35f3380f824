"""The lookup of a SIM's access points in databases of growing size: reading the file, and searching what it held."""

import json
import subprocess
import tempfile
from pathlib import Path

DATABASE_SIZES = (50, 5000)
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
    print(f"\nAPN lookup, CPU time ({ENTRIES_A_NETWORK} entries are found in each)")
    print(f"{'entries':>10}{'file bytes':>12}{'read us':>12}{'an entry ns':>13}{'ratio':>8}{'find us':>10}"
          f"{'an entry ns':>13}{'ratio':>8}")
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
        ratios = ["" if previous is None else f"{now / before:.2f}" for now, before in zip(each, previous or each)]
        print(f"{size:10d}{len(text):12d}{float(read) / 1000:12.1f}{each[0]:13.1f}{ratios[0]:>8}"
              f"{float(find) / 1000:10.2f}{each[1]:13.1f}{ratios[1]:>8}")
        previous = each
