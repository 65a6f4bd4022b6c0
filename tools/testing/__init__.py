"""A test run: what is built for it, which programs run at the same time, which run again, and the sum of the results."""
