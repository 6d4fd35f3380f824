"""One AT exchange beside a minimal C program that does the same open, lock, settle, write, read and close.

The two programs run in turns in one router, so that both see the same machine.
"""

from pathlib import Path

from meters import Cost, Router, install, instructions, measure, median, stripped_size, system_calls

PORT = "/dev/ttyUSB2"
COMMAND = "AT+CSQ"


def bench_exchange(build: Path, runs: int) -> None:
    programs = {
        "minimal C program": (["/tmp/bench/minimal_at", PORT, COMMAND], build / "tests/bench/minimal_at"),
        f"vela_modem AT {COMMAND}": (["vela_modem", "AT", COMMAND], build / "vela_modem"),
    }
    with Router("ec25", build=build) as router:
        install(router, build, "minimal_at", "measure")
        samples: dict[str, list[Cost]] = {name: [] for name in programs}
        for _ in range(runs):
            for name, (command, _) in programs.items():
                samples[name].append(measure(router, command))
        print(f"One AT exchange ({COMMAND}), medians of {runs} runs in turns")
        print(f"{'':24}{'wall ms':>10}{'CPU ms':>10}{'peak KiB':>10}{'instructions':>14}{'system calls':>14}"
              f"{'stripped bytes':>16}")
        rows = []
        for name, (command, binary) in programs.items():
            cost = median(samples[name])
            rows.append((cost.wall, cost.cpu, cost.peak, instructions(router, command),
                         len(system_calls(router, command)), stripped_size(binary)))
            print(f"{name:24}{cost.wall / 1000:10.2f}{cost.cpu / 1000:10.2f}{cost.peak:10.0f}{rows[-1][3]:14d}"
                  f"{rows[-1][4]:14d}{rows[-1][5]:16d}")
    ratios = [ours / minimal for minimal, ours in zip(*rows)]
    print(f"{'ratio':24}{ratios[0]:10.2f}{ratios[1]:10.2f}{ratios[2]:10.2f}{ratios[3]:14.2f}{ratios[4]:14.2f}"
          f"{ratios[5]:16.2f}")
    print(f"stripped plug-in: {stripped_size(build / 'vela_modem.so')} bytes")
