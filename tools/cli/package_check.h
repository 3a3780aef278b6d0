// The entries of a package judged by the extractor's own rules
// (extract/entry_rules.h), and compared with its signed manifest, as
// `inspect` reports them: an entry is good only when the extractor takes it
// and its size and SHA-256 are those the manifest lists. Any thread.
#ifndef TOOLS_CLI_PACKAGE_CHECK_H_
#define TOOLS_CLI_PACKAGE_CHECK_H_

#include <string>
#include <vector>

#include "extract_verify/manifest.h"
#include "tools/cli/archive_scan.h"

namespace cli {

// Why the extractor refuses an entry named `name` that declares `size`
// bytes, or empty when it takes it. Shared by `inspect` and `pack`.
std::string NameOrSizeRefusal(const std::string& name, int64_t size);

struct PackageFindings {
  std::vector<std::string> refused;        // "name: why", entries the extractor refuses
  std::vector<std::string> notInManifest;  // entry names
  std::vector<std::string> mismatched;     // "name: what differs"
  std::vector<std::string> missing;        // manifest files that no entry holds
  bool clean() const {
    return refused.empty() && notInManifest.empty() && mismatched.empty() && missing.empty();
  }
};

// Refusals only, when there is no verified manifest to compare with.
PackageFindings CheckEntries(const ArchiveScan& scan);
// Refusals and the comparison with the manifest's file list.
PackageFindings CheckAgainstManifest(const ArchiveScan& scan,
                                     const std::vector<_stVersionInfFileInfo>& files);

}  // namespace cli

#endif  // TOOLS_CLI_PACKAGE_CHECK_H_
