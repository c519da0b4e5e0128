#ifndef CF_EXPORT_H
#define CF_EXPORT_H

/// Marks what libcf.so exports; everything else in the library is hidden.
#define CF_EXPORT __attribute__((visibility("default")))

#endif
