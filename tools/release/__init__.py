"""Making the release archive."""
