"""The rules of the source tree, each a script lint-*.py, and what reads C++ and the list of entry points for all tools."""
