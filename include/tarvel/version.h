// The version of these headers. The build refuses a version that differs from its own.
#ifndef TARVEL_VERSION_H_
#define TARVEL_VERSION_H_

/// @file
/// The version of the headers, for the preprocessor.

#define TARVEL_VERSION_MAJOR 0  ///< Changes with the interface.
#define TARVEL_VERSION_MINOR 1  ///< While the major is 0: changes with the interface.
#define TARVEL_VERSION_PATCH 0  ///< Changes with each other release.

/// A version to compare with: `TARVEL_VERSION >= TARVEL_MAKE_VERSION(0, 1, 0)`.
#define TARVEL_MAKE_VERSION(major, minor, patch) ((major)*10000 + (minor)*100 + (patch))
/// This version as one number.
#define TARVEL_VERSION \
  TARVEL_MAKE_VERSION(TARVEL_VERSION_MAJOR, TARVEL_VERSION_MINOR, TARVEL_VERSION_PATCH)

/// @cond
#define TARVEL_DETAIL_QUOTE(text) #text
#define TARVEL_DETAIL_TEXT(number) TARVEL_DETAIL_QUOTE(number)
/// @endcond
/// This version as text, such as "0.1.0".
#define TARVEL_VERSION_STRING              \
  TARVEL_DETAIL_TEXT(TARVEL_VERSION_MAJOR) \
  "." TARVEL_DETAIL_TEXT(TARVEL_VERSION_MINOR) "." TARVEL_DETAIL_TEXT(TARVEL_VERSION_PATCH)

#endif  // TARVEL_VERSION_H_
