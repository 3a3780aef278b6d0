// Placeholder: declared by the pipeline work in progress.
#ifndef EXTRACT_SOURCE_READER_H_
#define EXTRACT_SOURCE_READER_H_
#endif  // EXTRACT_SOURCE_READER_H_
