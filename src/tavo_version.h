/* The version of these headers, in plain C. docs/stability.md tells what a version promises.
 *
 * The build, the package, `tavo --version` and the manual pages take it from here; CHANGELOG.md has
 * a section of that name. */
#ifndef TAVO_VERSION_H_
#define TAVO_VERSION_H_

#define TAVO_VERSION_MAJOR 0
#define TAVO_VERSION_MINOR 2
#define TAVO_VERSION_PATCH 0
#define TAVO_VERSION "0.2.0"

/* For comparisons: #if TAVO_VERSION_NUMBER >= TAVO_MAKE_VERSION(0, 2, 0) */
#define TAVO_MAKE_VERSION(major, minor, patch) ((major)*1000000 + (minor)*1000 + (patch))
#define TAVO_VERSION_NUMBER \
  TAVO_MAKE_VERSION(TAVO_VERSION_MAJOR, TAVO_VERSION_MINOR, TAVO_VERSION_PATCH)

#endif /* TAVO_VERSION_H_ */
