// EV_EXPORT marks the names that the shared library exports to its clients.
//
// The library is built with hidden visibility: a declaration without the mark
// stays inside the library, whichever header declares it.
#ifndef EXTRACT_VERIFY_EXPORT_H_
#define EXTRACT_VERIFY_EXPORT_H_

#define EV_EXPORT __attribute__((visibility("default")))

#endif  // EXTRACT_VERIFY_EXPORT_H_
