"""The rules of the source tree, each in a script lint-*.py, and the readers of C++ and of the entry points for all tools."""
