// Placeholder: declared by the pipeline work in progress.
#ifndef EXTRACT_EXTRACT_THREAD_H_
#define EXTRACT_EXTRACT_THREAD_H_
#endif  // EXTRACT_EXTRACT_THREAD_H_
