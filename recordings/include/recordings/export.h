#ifndef RECORDINGS_EXPORT_H
#define RECORDINGS_EXPORT_H

/// Marks what the shared library offers. Everything else in it is hidden.
#define RECORDINGS_API __attribute__((visibility("default")))

#endif // RECORDINGS_EXPORT_H
