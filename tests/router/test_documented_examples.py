"""The examples of the documentation print what they say: each block of commands that begins with "router# " is run.

A block runs in a fresh router, the one of the demonstration. After a wanted change
`/usr/bin/python3 tests/router/test_documented_examples.py` puts what the commands print now into the documents.
"""

import re
import shlex
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
if __name__ == "__main__":
    sys.path.insert(0, str(ROOT / "sim"))

import pytest
from showcase import showcase

DOCUMENTS = [ROOT / "README.md", *sorted((ROOT / "docs").glob("*.md"))]
BLOCK = re.compile(r"^```\n(?=router# )(.*?)^```$", re.MULTILINE | re.DOTALL)
PROMPT = "router# "


def commands_of(block: str) -> list[str]:
    return [line.removeprefix(PROMPT) for line in block.splitlines() if line.startswith(PROMPT)]


def transcript(commands: list[str]) -> str:
    """The commands and what they print, as a terminal shows it."""
    text = ""
    with showcase() as r:
        if any(command.startswith("ubus call vela_modem ") for command in commands):
            r.start_rpcd()
        for command in commands:
            result = r.run(*shlex.split(command))
            output = (result.stdout + result.stderr).replace("\r", "")
            text += PROMPT + command + "\n" + output
            if output and not output.endswith("\n"):
                text += "\n"
            if result.returncode != 0:
                text += f"[exit status {result.returncode}]\n"
    return text


BLOCKS = [
    pytest.param(document, block, id=f"{document.stem}-{commands_of(block)[0][:50]}")
    for document in DOCUMENTS
    for block in BLOCK.findall(document.read_text(encoding="utf-8"))
]


@pytest.mark.parametrize("document, block", BLOCKS)
def test_an_example_prints_what_the_document_says(document, block):
    assert transcript(commands_of(block)) == block


def test_there_are_examples():
    assert {each.values[0].name for each in BLOCKS} >= {"README.md", "endpoints.md"}


if __name__ == "__main__":
    for one in DOCUMENTS:
        before = one.read_text(encoding="utf-8")
        after = BLOCK.sub(lambda found: "```\n" + transcript(commands_of(found[1])) + "```", before)
        one.write_text(after, encoding="utf-8")
