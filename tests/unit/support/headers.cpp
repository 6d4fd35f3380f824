// Nothing but the headers that all unit tests have in common, compiled once for all of them.
