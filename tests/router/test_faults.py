"""Memory that runs out and system calls that fail, at every place where they can: whatever happens, a run ends as is
documented, leaves files as they were or as they should be and nothing else, and the port to the next one.

By default a few places of each kind are tried, spread over the run; with --every-fault all of them.
"""

import pytest
from fault_cases import BY_NAME, CASES
from fault_runs import CHILD_EFFECTS, EFFECTS, Case, faults_of

# The n-th allocation fails, or it and all after it.
MODES = ("once", "on")

# Those that differ in what they do: each way to the modem, to the configuration, to the spool, to other programs.
REPRESENTATIVE = [BY_NAME[name] for name in (
    "AT", "signal", "cells", "sim-status", "connect", "connect-auto", "new-connect-auto", "disconnect", "carrier",
    "convert", "/modem/info", "/modem/brief_info", "/modem/auto", "/modem/set", "/modem/get", "/modem/enable",
    "/modem/reset", "/modem/sim/switch", "/modem/at", "/modem/sms/list", "/modem/sms/delete", "/modem/sms/delete_all",
    "/modem/sms/status", "/modem/sms/send", "/modem/sms/code", "/modem/sms/forward", "/modem/sms/account",
    "/modem/upgrade", "/modem/upgrade_status", "/modem/cells/get",
)]


@pytest.mark.shipped
@pytest.mark.parametrize("case", CASES, ids=str)
def test_an_allocation_that_fails(case: Case, places, tally):
    with faults_of(case) as faults:
        for mode in MODES:
            runs = tally(f"allocation fails ({mode})", case, faults.short_of_memory(mode, places(3)))
            assert runs > 0 or not case.argv  # some handlers allocate nothing


@pytest.mark.parametrize("case", REPRESENTATIVE, ids=str)
def test_a_system_call_that_fails_is_interrupted_or_cut_short(case: Case, places, tally):
    with faults_of(case) as faults:
        assert tally("system call", case, faults.troubled("self", EFFECTS, places(2))) > 0
        tally("system call of a child before exec", case, faults.troubled("children", CHILD_EFFECTS, places(2)))
