"""Random lives of packages, and kills of the engine during an upgrade: the command ./hx lives."""
