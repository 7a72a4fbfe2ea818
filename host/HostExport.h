#pragma once
// SA_HOST_API marks the host classes and functions the shared library
// exports; it is built with hidden visibility, so everything else stays
// private. The host has its own macro because it is built before, and
// without, the statistics library that uses it.
#if defined(_WIN32)
#if defined(SA_BUILDING_LIBRARY)
#define SA_HOST_API __declspec(dllexport)
#else
#define SA_HOST_API __declspec(dllimport)
#endif
#elif defined(__GNUC__) || defined(__clang__)
#define SA_HOST_API __attribute__((visibility("default")))
#else
#define SA_HOST_API
#endif
