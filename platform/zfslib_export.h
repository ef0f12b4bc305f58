#pragma once

/// Marks what the shared library exports; everything else in it is hidden.
#if defined(__GNUC__)
#define ZFSLIB_EXPORT [[gnu::visibility("default")]]
#else
#define ZFSLIB_EXPORT
#endif
