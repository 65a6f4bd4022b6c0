"""What of the library the tests run: the measurement, its report, and the list of what no test runs."""
