"""A test run: what is built for it, what runs where, what runs again, and the sum of the results."""
