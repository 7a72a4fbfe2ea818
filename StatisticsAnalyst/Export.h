#pragma once
// SA_API marks the classes and functions the shared library exports; the
// library is built with hidden visibility, so everything else stays private.
#if defined(_WIN32)
#if defined(SA_BUILDING_LIBRARY)
#define SA_API __declspec(dllexport)
#else
#define SA_API __declspec(dllimport)
#endif
#elif defined(__GNUC__) || defined(__clang__)
#define SA_API __attribute__((visibility("default")))
#else
#define SA_API
#endif
