"""Fuzzing: the targets of the fuzzer, their corpus, and the bugs that prove that it finds something."""
