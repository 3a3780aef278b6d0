// Lock annotations that clang's -Wthread-safety analysis checks: which mutex
// guards a field, which lock a function needs or takes. Other compilers see
// nothing. The names follow clang's thread-safety documentation, with the
// library's prefix.
#ifndef EXTRACT_VERIFY_THREAD_ANNOTATIONS_H_
#define EXTRACT_VERIFY_THREAD_ANNOTATIONS_H_

#if defined(__clang__)
#define EV_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define EV_THREAD_ANNOTATION(x)
#endif

#define EV_CAPABILITY(x) EV_THREAD_ANNOTATION(capability(x))
#define EV_SCOPED_CAPABILITY EV_THREAD_ANNOTATION(scoped_lockable)
#define EV_GUARDED_BY(x) EV_THREAD_ANNOTATION(guarded_by(x))
#define EV_PT_GUARDED_BY(x) EV_THREAD_ANNOTATION(pt_guarded_by(x))
#define EV_REQUIRES(...) EV_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define EV_ACQUIRE(...) EV_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define EV_RELEASE(...) EV_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define EV_EXCLUDES(...) EV_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define EV_NO_THREAD_SAFETY_ANALYSIS EV_THREAD_ANNOTATION(no_thread_safety_analysis)

#endif  // EXTRACT_VERIFY_THREAD_ANNOTATIONS_H_
