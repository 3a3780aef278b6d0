// Placeholder: declared by the pipeline work in progress.
#ifndef EXTRACT_HASH_COMPARE_H_
#define EXTRACT_HASH_COMPARE_H_
#endif  // EXTRACT_HASH_COMPARE_H_
