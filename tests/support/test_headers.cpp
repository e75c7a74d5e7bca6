// Carries the headers that all tests share, compiled once.
