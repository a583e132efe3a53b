"""The command `typed-shapes`: looks at payloads through the typed record classes."""
