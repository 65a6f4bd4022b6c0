"""Counting the instructions of the ARM64 library, for ./hx bench arm64."""
