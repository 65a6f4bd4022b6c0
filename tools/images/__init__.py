"""The library's files as such."""
