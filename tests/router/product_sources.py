"""What the product's sources name: configuration options and paths. The documents that list them are checked by it."""

import re
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
DIRECTORIES = ("platform", "modem", "vendor", "connection", "sms", "router", "api", "cli", "tools")
LITERAL = re.compile(r'"((?:[^"\\\n]|\\.)*)"')
CALL = re.compile(r"\b(vuci2?_(?:get|set)_name)\(")
OPTION_PATH = re.compile(r"(?<![\w.])([a-z]\w*)\.([\w%@\[\]]+)\.([a-z]\w*|%s)(?!\w)")
PATH = re.compile(r"(?<![\w.%*])/(?:tmp|etc|var|usr|www|proc|sys|dev)(?:/[\w.%*:-]*)+")

INTERFACE, MEMBER = "<interface>", "<interface>_only"
# How the sources call a modem's interface, which is the name of its section, and the member of the policy.
SECTIONS = {"ifname": INTERFACE, "model.ifname": INTERFACE, "reader.ifname": INTERFACE, "section": INTERFACE,
            "%s": INTERFACE, "member": MEMBER}

# Where the name of an option is no literal: the file with the option as it stands there, and the pattern that finds the
# names (and values that are written) in that file, within what the other pattern matches.
INDIRECT = {
    ("connection/network_config.cpp", f"network.{INTERFACE}.name"):
        (r".+", r'\bset_option\(ifname, "(\w+)", (?:"(\w+)")?'),
    ("connection/config_endpoints.cpp", f"network.{INTERFACE}.option"):
        (r"ReportedOption OPTIONS_.+", r'(?:\{|\bread\()"(\w+)", ()(?:"\w+"\}|\w+\))'),
    ("connection/multiwan.cpp", f"mwan3.{INTERFACE}.option.name"):
        (r"TRACKING_OPTIONS\[\] = .+?;", r'\{"(\w+)", "(\w+)"\}'),
    ("connection/multiwan.cpp", f"mwan3.{MEMBER}.option.name"):
        (r"MEMBER_OPTIONS\[\] = .+?;", r'\{"(\w+)", "(\w+)"\}'),
    ("cli/connect_commands.cpp", f"network.{INTERFACE}.%s"):
        (r"SavedOption options\[\] = .+?;", r'\{"(\w+)", ()saved'),
}


def _sources() -> dict[str, str]:
    """The text of each file, without its comments."""
    paths = [path for name in DIRECTORIES for path in (ROOT / name).rglob("*") if path.suffix in (".cpp", ".h")]
    return {str(path.relative_to(ROOT)): re.sub(r"(?m)^\s*//.*$|(?<=[;,{}]) +// .*$", "", path.read_text("utf-8"))
            for path in sorted(paths)}


def _arguments(text: str) -> list[str]:
    """The arguments of a call, from behind its parenthesis."""
    found, depth, start, quoted = [], 0, 0, False
    for index, char in enumerate(text):
        if char == '"' and text[index - 1] != "\\":
            quoted = not quoted
        elif not quoted and char in "([{":
            depth += 1
        elif not quoted and char in ")]}":
            depth -= 1
        if depth < 0 or (char == "," and depth == 0 and not quoted):
            found.append(text[start:index].strip())
            start = index + 1
        if depth < 0:
            return found
    raise AssertionError(f"a call without an end: {text[:80]}")


def _named_options(text: str) -> list[tuple[str, str]]:
    """package.section.option of the calls that take the three by name, and what is written, if that is a literal."""
    found = []
    for call in CALL.finditer(text):
        arguments = _arguments(text[call.end():])
        package, section, option = [argument.strip('"') for argument in arguments[-4:-1]]
        if option == "nullptr" or " " in package:  # the whole section; the declaration itself
            continue
        section = SECTIONS.get(section, section)
        value = arguments[-1].strip('"') if call[1].endswith("set_name") and arguments[-1].startswith('"') else ""
        found.append((f"{package}.{section}.{option}", value))
    return found


def options() -> dict[str, set[str]]:
    """Every UCI option that the product reads or writes, package.section.option, with the constants that it writes."""
    found: dict[str, set[str]] = {}
    for file, text in _sources().items():
        if file.startswith("platform/"):
            continue
        here = _named_options(text)
        for literal in LITERAL.findall(text):
            for package, section, option in OPTION_PATH.findall(literal):
                if not (package, section) == ("network", "interface"):  # an object on the bus
                    here.append((f"{package}.{SECTIONS.get(section, section)}.{option}", ""))
        for name, value in here:
            if (file, name) in INDIRECT:
                within, each = INDIRECT[(file, name)]
                prefix = re.match(rf"\w+\.{INTERFACE}(?:_only)?", name)[0]
                block = re.search(within, text, re.DOTALL)[0]
                here_too = [(f"{prefix}.{option}", written) for option, written in re.findall(each, block)]
                assert here_too, f"nothing found for {name} of {file}"
            else:
                assert re.fullmatch(r"[a-z]\w*", name.rpartition(".")[2]) and name.count(".") == 2, \
                    f"{file}: which options are {name}?"
                here_too = [(name, value)]
            for option, written in here_too:
                found.setdefault(option, set()).update({written} - {""})
    return found


def paths() -> set[str]:
    """Every absolute path in the product's texts and commands, with <bus>, <ifname> and N for what is put into it."""
    found = set()
    for text in _sources().values():
        names = re.findall(r'_FILE = "([\w-]+)"', text)
        found |= {f"/tmp/modem.<bus>/{name}" for name in names}
        for literal in LITERAL.findall(text):
            for path in PATH.findall(literal):
                path = path.replace("modem.%s/%s", "modem.%s").replace("modem.%s", "modem.<bus>")
                path = path.replace("mwan3track/%s", "mwan3track/<ifname>").replace("%d", "N").replace("%s", "<name>")
                found.add(path.rstrip("/*").removesuffix("/"))
    return found
