// Not written yet.
