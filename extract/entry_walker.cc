#include "extract/entry_walker.h"

#include <archive.h>
#include <archive_entry.h>

#include <cstdio>
#include <cstring>
#include <exception>
#include <new>
#include <string>

#include "extract/entry_admission.h"
#include "extract/entry_rules.h"
#include "extract/file_threads.h"
#include "extract/run_stop.h"
#include "extract_verify/buffers.h"
#include "extract_verify/extraction.h"
#include "extract_verify/manifest.h"
#include "extract_verify/verify.h"
#include "platform/file_io.h"
#include "platform/log.h"

namespace ev {

namespace {

// The walk runs on the extract thread; its messages carry that name.
const char kThreadName[] = "extractThread";
#define EXTRACT_LOG(level, ...) EV_LOG_AS(kThreadName, level, __VA_ARGS__)

const size_t kPathSize = 256;
const size_t kNameCompareLength = 255;

// "<directory>/<name>", cut silently to 254 characters: the path is formed
// in at most 255 bytes of the buffer, terminator included, and the buffer's
// last byte stays 0.
void FormatPath(char (&path)[kPathSize], const std::string& directory, const char* name) {
  std::memset(path, 0, sizeof path);
  snprintf(path, sizeof path - 1, "%s/%s", directory.c_str(), name);
}

bool IsInterestedFile(const std::string& name) {
  return strncmp(name.c_str(), g_interesetedFileName.c_str(), kNameCompareLength) == 0;
}

// The pipeline of one file, or null when it cannot be made. The object is
// allocated without throwing; its 16 MiB ring and its locks may still be
// refused when many files are in flight (a 32-bit address space holds only
// so many rings and thread stacks), and `refused` then tells the caller,
// instead of the exception ending the process.
HashAndWriteBuffer* NewFileBuffer(const std::string& name, const char* path, bool* refused) {
  try {
    return new (std::nothrow) HashAndWriteBuffer(name, path);
  } catch (const std::exception&) {
    *refused = true;
    return nullptr;
  }
}

// One walk over the entries of an open archive. Each handler returns true
// when the walk must stop after the current entry.
class EntryWalker {
 public:
  EntryWalker(archive* reader, ReadAndExtractBuffer& buffer) : m_reader(reader), m_buffer(buffer) {}

  bool run();  // true when it reached the archive's end

 private:
  void setStatus(_KALU_Error status) { m_buffer.m_eStatus = status; }
  bool handleManifest(const std::string& name);
  bool refuseSecondManifest();
  bool refuseManifest(_KALU_Error result);
  bool endManifest();
  bool abandonManifest();
  bool isFilteredOut(const std::string& name);
  bool extractFile(const std::string& name, int64_t declaredSize);
  bool refuseEntry(const std::string& name, _KALU_Error status, const std::string& reason);
  bool copyEntryData(HashAndWriteBuffer* file, uint64_t byteLimit);
  bool completesSingleFileRun(const std::string& name);
  bool runStopped();

  archive* m_reader;
  ReadAndExtractBuffer& m_buffer;
  bool m_bManifestSeen = false;
  size_t m_manifestPiecesAccepted = 0;  // pieces of signed manifest that verified
  bool m_bManifestParsed = false;       // ... and parsed: it bounds what is written
  std::string m_manifestPath;           // of the verified Version.inf, once written
  unsigned char m_data[kManifestReadSize] = {};
};

bool EntryWalker::run() {
  std::string entryName;
  for (;;) {
    if (runStopped()) return false;
    archive_entry* entry = nullptr;
    int result = archive_read_next_header(m_reader, &entry);
    if (result == ARCHIVE_EOF) {
      EXTRACT_LOG(kLogInfo, " Reached end of archive file hence coming out of while loop");
      return true;
    }
    if (result < 0) {  // warnings too
      printf("Problem reading archive\n");
      EXTRACT_LOG(kLogError, "Problem reading archive\n");
      setStatus(PKG_ERR03);
      return false;
    }
    const int64_t size = archive_entry_size(entry);
    const char* pathname = archive_entry_pathname(entry);
    entryName = pathname != nullptr ? pathname : "";
    const EntryKind kind = ClassifyEntry(entryName, size);
    if (kind == EntryKind::kEmpty) {
      setStatus(PKG_ERR03);
      printf("Error: archive_entry_size(entry) returns negative value \n");
      EXTRACT_LOG(kLogError, "Error: archive_entry_size(entry) returns negative value");
      return false;
    }
    if (kind == EntryKind::kParentReference) {
      printf("Zip: Entry file name contains - \"..\" \n");
      EXTRACT_LOG(kLogInfo, "Zip: Entry file name contains - \"..\" ");
      return false;
    }

    bool stop = false;
    if (kind == EntryKind::kSignedManifest) {
      stop = handleManifest(entryName);
    } else if (!isFilteredOut(entryName)) {
      stop = extractFile(entryName, size);
    }
    if (completesSingleFileRun(entryName)) stop = true;
    entryName.clear();
    if (stop) return false;
  }
}

// Verifies each read of the signed manifest, which writes Version.inf, and
// parses it into the run's manifest object. A Version.der is expected to fit
// in one read; the signed blob is self-delimiting, so the whole buffer is
// handed over whatever the read returned.
bool EntryWalker::handleManifest(const std::string& name) {
  printf("Extracting file Name : %s\n", name.c_str());
  EXTRACT_LOG(kLogInfo, "Extracting file Name : %s\n", name.c_str());
  EXTRACT_LOG(kLogInfo, " Entering While Loop : extracting file");
  char manifestPath[kPathSize];
  for (;;) {
    la_ssize_t copied = archive_read_data(m_reader, m_data, sizeof m_data);
    if (copied == 0) {
      EXTRACT_LOG(kLogInfo, "extracting file copiedSize is 0 , hence coming out of while loop ");
      EXTRACT_LOG(kLogInfo, " Exiting While Loop : extracting file");
      m_bManifestSeen = true;
      return false;
    }
    if (copied < 0) {
      printf("Copied size too small\n");
      EXTRACT_LOG(kLogInfo, " Copied size too small ");
      setStatus(PKG_ERR03);
      return endManifest();
    }
    // Before the verification, which would write over the verified
    // Version.inf whatever its outcome.
    if (RefusesManifestPiece(m_manifestPiecesAccepted)) return refuseSecondManifest();
    FormatPath(manifestPath, g_dstDirPath, kManifestFileName);
    auto result = static_cast<_KALU_Error>(EV_Unsign_using_date(
        manifestPath, g_certificateFilePath.c_str(), m_data, static_cast<int>(kManifestReadSize)));
    if (result != KALU_NO_ERR) return refuseManifest(result);
    ++m_manifestPiecesAccepted;
    m_manifestPath = manifestPath;
    // A link planted at Version.inf was not written through; nor is it read:
    // the manifest is then missing, as when it could not be written at all.
    result = platform::IsSymbolicLink(manifestPath)
                 ? VER_ERR01
                 : PrintKALU_VersionParse_TPN(manifestPath, g_objKALU_Version_TPN);
    setStatus(result);
    m_bManifestParsed = result == KALU_NO_ERR;
    if (result != KALU_NO_ERR) {
      printf("Error: Version Inf Parsing Failed. Status :%d / %s\n", result,
             CKALUStatus::EnumToStr(result));
      EXTRACT_LOG(kLogError, "Error: Version Inf Parsing Failed. Status :%d / %s ", result,
                  CKALUStatus::EnumToStr(result));
      return abandonManifest();
    }
  }
}

// A package has one signed manifest. Every further piece of Version.der (a
// second entry, or the bytes after the first 4096 of one) is refused before
// it is verified: one that verifies could carry the file list of another
// package from the same signer, and its verification alone would replace
// the verified Version.inf on disk. It is refused as a failed
// verification instead of being verified.
bool EntryWalker::refuseSecondManifest() {
  EV_SAY_AS(kThreadName, kLogError, "Error: more than one signed manifest in the package");
  return refuseManifest(SIGN_ERR01);
}

bool EntryWalker::refuseManifest(_KALU_Error result) {
  setStatus(result);
  printf("Error: Open SSL Verification Failed. Status :%d / %s\n", result,
         CKALUStatus::EnumToStr(result));
  EXTRACT_LOG(kLogError, "Error: Open SSL Verification Failed. Status :%d / %s ", result,
              CKALUStatus::EnumToStr(result));
  return abandonManifest();
}

bool EntryWalker::endManifest() {
  EXTRACT_LOG(kLogInfo, " Exiting While Loop : extracting file");
  m_bManifestSeen = true;
  return true;
}

// A refused manifest discards every file pipeline of the run.
bool EntryWalker::abandonManifest() {
  ClearHashAndWriteBuffer();
  return endManifest();
}

bool EntryWalker::isFilteredOut(const std::string& name) {
  if (g_eExtractionType == EXTRACTION_EXCLUDE_FILE && IsInterestedFile(name)) {
    printf("Excluded File : %s  from Extraction\n", name.c_str());
    EXTRACT_LOG(kLogInfo, "Excluded File : %s  from Extraction", name.c_str());
    return true;
  }
  if (g_eExtractionType == EXTRACTION_SINGLE_FILE && !IsInterestedFile(name)) {
    printf("Skipped File : %s  from Extraction\n", name.c_str());
    EXTRACT_LOG(kLogInfo, "Skipped File : %s  from Extraction", name.c_str());
    return true;
  }
  return false;
}

// Sends the entry through a pipeline of its own, unless the run's manifest
// refuses it. The end of its data is not signalled here: every pipeline of
// the run is finished after the walk.
bool EntryWalker::extractFile(const std::string& name, int64_t declaredSize) {
  char filePath[kPathSize];
  FormatPath(filePath, g_dstDirPath, name.c_str());
  const EntryVerdict verdict = AdmitEntry(name, declaredSize, filePath, m_manifestPath,
                                          m_bManifestParsed ? g_objKALU_Version_TPN : nullptr);
  if (verdict.status != KALU_NO_ERR) return refuseEntry(name, verdict.status, verdict.reason);
  printf("Extracting file Name : %s\n", name.c_str());
  EXTRACT_LOG(kLogInfo, "Extracting file Name : %s", name.c_str());
  bool refused = false;
  HashAndWriteBuffer* file = NewFileBuffer(name, filePath, &refused);
  if (file == nullptr) {
    printf("THashAndWriteBuffer object is failed to create \n");
    EXTRACT_LOG(kLogInfo, "THashAndWriteBuffer object is failed to create");
    // Without the object alone the entry is left out and the run goes on,
    // leniently on purpose. A refused ring ends the run: further files would
    // meet the same shortage.
    if (!refused) return false;
    setStatus(PKG_ERR03);
    return true;
  }
  StartFileThreads(file);
  if (!m_bManifestParsed) NoteUnjudgedEntry(name, declaredSize);
  return copyEntryData(file, verdict.byteLimit);
}

// The walk stops: the entry is not written, and the run fails with `status`.
bool EntryWalker::refuseEntry(const std::string& name, _KALU_Error status,
                              const std::string& reason) {
  EV_SAY_AS(kThreadName, kLogError, "Error: entry %s refused: %s", name.c_str(), reason.c_str());
  setStatus(status);
  return true;
}

// The archive reader copies the entry's data straight into the pipeline's
// chunks, at most `byteLimit` bytes of them.
bool EntryWalker::copyEntryData(HashAndWriteBuffer* file, uint64_t byteLimit) {
  uint64_t total = 0;
  for (;;) {
    if (runStopped()) return true;
    unsigned char* chunk = file->nextCopy();
    // Nobody would pass the chunks on, or the run stopped while it waited.
    if (chunk == nullptr) return runStopped();
    la_ssize_t copied = archive_read_data(m_reader, chunk, HashAndWriteBuffer::kChunkSize);
    if (copied == 0) {
      file->copyComplete();
      return false;
    }
    if (copied < 0) {
      printf("Problem extracting file\n");
      EXTRACT_LOG(kLogInfo, "Problem extracting file");
      setStatus(PKG_ERR03);
      return true;
    }
    total += static_cast<uint64_t>(copied);
    if (total > byteLimit) {
      return refuseEntry(file->fileName(), SIGN_ERR02, OversizeReason(byteLimit));
    }
    file->copyReady(static_cast<unsigned int>(copied));
  }
}

// An abort fails the run; a failed write has failed it already (the end of
// the file pipelines reports it). Either way nothing more is walked. The
// source reader reports the abort.
bool EntryWalker::runStopped() {
  if (run_stop::AbortRequested() && m_buffer.m_eStatus == KALU_NO_ERR) setStatus(PKG_ERR03);
  return run_stop::Requested();
}

// The single selected file is done once the manifest has been seen: the
// reader stops, and is handed a chunk back in case it waits for one.
bool EntryWalker::completesSingleFileRun(const std::string& name) {
  if (g_eExtractionType != EXTRACTION_SINGLE_FILE || !IsInterestedFile(name) || !m_bManifestSeen) {
    return false;
  }
  g_isExtractionCompleted = 1;
  m_buffer.extractReady();
  return true;
}

}  // namespace

bool WalkEntries(archive* reader, ReadAndExtractBuffer& buffer) {
  return EntryWalker(reader, buffer).run();
}

}  // namespace ev
