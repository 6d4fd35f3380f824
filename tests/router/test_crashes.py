"""The program is killed before each system call that changes something: every file is the old one or the new one, and
the next run brings about what the first one was to.

Two things are otherwise, as they are meant to be. ssmtp's files are rewritten in place, so they may end anywhere. The
modem's interface is deleted and written in two commits, so it may be missing. What lies beside a file, on its way into
its place, stays there and is in nobody's way.

By default a few places are tried, spread over the run; with --every-fault all of them.
"""

import pytest
from fault_cases import BY_NAME, CODES
from fault_runs import CONFIG, Case, faults_of

KILLED = [BY_NAME[name] for name in (
    "connect", "connect-auto", "new-connect-auto", "disconnect", "carrier", "wifi_lte_interference", "/modem/info",
    "/modem/brief_info", "/modem/set", "/modem/set of a new interface", "/modem/enable", "/modem/sms/delete",
    "/modem/sms/delete_all", "/modem/sms/account", "/modem/sim/switch",
)]
# Those that write one thing, at each of all their calls.
KILLED_ANYWHERE = [BY_NAME[name] for name in ("/modem/sms/code", "/modem/sms/forward", "/modem/sms/status")]


@pytest.mark.parametrize("case", KILLED, ids=str)
def test_a_run_that_is_killed_before_a_call_that_changes_something(case: Case, places, tally):
    with faults_of(case) as faults:
        assert tally("killed", case, faults.killed("changing", places(4))) > 0


@pytest.mark.parametrize("case", KILLED_ANYWHERE, ids=str)
def test_a_run_that_is_killed_before_any_call(case: Case, places, tally):
    with faults_of(case) as faults:
        assert tally("killed", case, faults.killed("any", places(12))) > 0


def test_drafts_that_killed_runs_have_left_are_in_nobodys_way():
    case = BY_NAME["/modem/sms/code"]
    with faults_of(case) as faults:
        faults.restore()
        _, counts, _ = faults.meddled("self", "rename", 0, "kill")
        assert counts == {"rename": 1}
        for _ in range(5):
            # Not restored in between: five drafts lie there in the end.
            faults.r.write(f"{CONFIG}/velaconfig", CODES["velaconfig"])
            faults.meddled("self", "rename", 1, "kill")
        drafts = [name for name in faults.r.listdir(CONFIG) if name.startswith(".velaconfig")]
        assert len(drafts) == 5
        assert faults.r.run("uci", "show").stderr == ""
        assert faults.run(faults.argv()).returncode == 0
        assert faults.unfinished() == []
