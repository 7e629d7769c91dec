#ifndef MVSVC_TRUSTED_PATH_H
#define MVSVC_TRUSTED_PATH_H

#include <string>

// `name` inside the shared trusted directory `directory`. The design joins the two without a
// separator, relying on the '/' that the platform's paths end with; its documentation does not
// promise that '/', so one is added when it is missing, and the path is the design's otherwise.
inline std::string mvsvcInTrustedDirectory(const std::string& directory, const std::string& name) {
  if (!directory.empty() && directory.back() != '/')
    return directory + "/" + name;
  return directory + name;
}

#endif
