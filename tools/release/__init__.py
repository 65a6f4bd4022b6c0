"""The release archive."""
