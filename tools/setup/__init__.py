"""What the other commands need of the machine: Debian packages, the compiler of the tests, Wine's file trees."""
