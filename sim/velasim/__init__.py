"""The simulated router: a private mount namespace with USB modems, a bus daemon and recorders in it.

`Router` (router.py) is the whole interface; README.md beside this package describes it.
"""

__all__ = ["Router"]


def __getattr__(name: str):
    # On first use only: the process inside the router imports its own modules and has no need of the outer side.
    if name == "Router":
        from .router import Router

        return Router
    raise AttributeError(name)
