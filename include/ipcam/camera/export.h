// Visibility and thread-safety annotations used by the public headers.
#pragma once

// The library is built with hidden visibility: what carries IPCAM_CAMERA_API is its whole exported
// interface, what carries IPCAM_CAMERA_LOCAL is a private member of an exported class.
#define IPCAM_CAMERA_API __attribute__((visibility("default")))
#define IPCAM_CAMERA_LOCAL __attribute__((visibility("hidden")))

// Clang's thread-safety analysis; empty for other compilers.
#if defined(__clang__)
#define IPCAM_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define IPCAM_THREAD_ATTRIBUTE(x)
#endif
#define IPCAM_CAPABILITY(name) IPCAM_THREAD_ATTRIBUTE(capability(name))
#define IPCAM_SCOPED_CAPABILITY IPCAM_THREAD_ATTRIBUTE(scoped_lockable)
#define IPCAM_GUARDED_BY(m) IPCAM_THREAD_ATTRIBUTE(guarded_by(m))
#define IPCAM_REQUIRES(...) IPCAM_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define IPCAM_EXCLUDES(...) IPCAM_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))
#define IPCAM_ACQUIRE(...) IPCAM_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define IPCAM_RELEASE(...) IPCAM_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
