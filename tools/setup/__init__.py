"""Installs what the other commands need: Debian packages, the compiler of the tests, Wine's file trees."""
