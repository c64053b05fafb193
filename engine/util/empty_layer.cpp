// Placeholder translation unit for an engine layer that has no sources yet.
