// The version of these headers. The build refuses a version that differs from its own.
#ifndef TARVEL_VERSION_H_
#define TARVEL_VERSION_H_

#define TARVEL_VERSION_MAJOR 0
#define TARVEL_VERSION_MINOR 1
#define TARVEL_VERSION_PATCH 0

// For comparisons: #if TARVEL_VERSION >= TARVEL_MAKE_VERSION(0, 1, 0)
#define TARVEL_MAKE_VERSION(major, minor, patch) ((major)*10000 + (minor)*100 + (patch))
#define TARVEL_VERSION \
  TARVEL_MAKE_VERSION(TARVEL_VERSION_MAJOR, TARVEL_VERSION_MINOR, TARVEL_VERSION_PATCH)

#endif  // TARVEL_VERSION_H_
