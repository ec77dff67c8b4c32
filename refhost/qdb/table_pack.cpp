// Packing a table (a complete new file replaces the old one) and creating
// an empty one.
#include <ctype.h>
#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "host/qdsp32.h"
#include "qdbase_impl.h"

namespace {

std::string DirectoryPart(const std::string& file) {
  const size_t slash = file.rfind('/');
  return slash == std::string::npos ? std::string() : file.substr(0, slash + 1);
}

bool SyncDirectory(const std::string& dir) {
  int fd = open(dir.empty() ? "." : dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return false;
  const bool ok = fsync(fd) == 0;
  close(fd);
  return ok;
}

// Writes the new file: the old header (its dialect, code page and every
// byte after the field descriptors kept) with the new count and today's
// date, the live records, the end-of-file mark. *kept: records written.
bool WritePacked(Qdbase::Impl& m, int out, long* kept, std::string* why) {
  std::string header(static_cast<size_t>(m.layout.headerLength), '\0');
  if (!m.file.ReadAt(&header[0], header.size(), 0)) {
    *why = m.file.Error();
    return false;
  }
  std::string body;
  std::string record;
  *kept = 0;
  for (long r = 1; r <= m.records; ++r) {
    if (!m.ReadRecord(r, &record)) {
      *why = m.file.Error();
      return false;
    }
    if (record[0] == '*') continue;
    body += record;
    ++*kept;
  }
  body.push_back('\x1A');
  unsigned char* h = reinterpret_cast<unsigned char*>(&header[0]);
  qdb::TodayBytes(h + 1);
  qdb::CountBytes(*kept, h + 4);
  if (!qdb::WriteFully(out, header.data(), header.size(), 0) ||
      !qdb::WriteFully(out, body.data(), body.size(), static_cast<long long>(header.size())) ||
      fsync(out) != 0) {
    *why = std::string("write: ") + strerror(errno);
    return false;
  }
  return true;
}

}  // namespace

int Qdbase::Pack() try {
  Impl& m = *impl_;
  if (!m.IsOpen() || m.readOnly) return 0;
  if (m.booking != nullptr) {
    qdb::TraceTable(m.openFile, "cannot pack inside a booking");
    return 0;
  }
  qdb::WriteLock lock(m);
  if (!lock.held()) return 0;
  const std::string file = m.openFile;
  std::string why;
  // The journal's entries name offsets in the old file: they must be in
  // the tables for good before the file changes.
  if (!m.journal->Checkpoint(&why)) {
    qdb::TraceTable(file, "cannot pack: " + why);
    return 0;
  }
  const std::string dir = DirectoryPart(file);
  std::string tmpl = dir + m.base + "-pack-XXXXXX.dbf";
  std::vector<char> name(tmpl.begin(), tmpl.end());
  name.push_back('\0');
  const int out = mkstemps(name.data(), 4);
  if (out < 0) {
    qdb::TraceTable(file, std::string("cannot pack: no temporary file (") + strerror(errno) + ")");
    return 0;
  }
  struct CloseOnExit {
    int fd;
    ~CloseOnExit() {
      if (fd >= 0) close(fd);
    }
  } closer{out};
  const std::string tmp(name.data());
  // The temporary file goes whatever happens before it replaces the table.
  struct Discard {
    const std::string& name;
    bool keep = false;
    ~Discard() {
      if (!keep) unlink(name.c_str());
    }
  } discard{tmp};
  struct stat st;
  long kept = 0;
  bool ok = WritePacked(m, out, &kept, &why);
  if (ok && stat(file.c_str(), &st) == 0) {
    if (fchown(out, st.st_uid, st.st_gid) != 0) {
      // Keeping the owner needs privileges; the mode is what matters.
    }
    ok = fchmod(out, st.st_mode & 07777) == 0;
    if (!ok) why = std::string("chmod: ") + strerror(errno);
  }
  close(out);
  closer.fd = -1;
  if (ok && rename(tmp.c_str(), file.c_str()) != 0) {
    ok = false;
    why = std::string("rename: ") + strerror(errno);
  }
  if (!ok) {
    qdb::TraceTable(file, "cannot pack: " + why);
    return 0;
  }
  discard.keep = true;
  SyncDirectory(dir);
  m.journal->CountChange();
  if (!m.file.Reopen(m.readOnly) || !m.Load(&why)) {
    qdb::TraceTable(file, "packed, but cannot read it again: " + why);
    return 0;
  }
  Top();
  return 1;
} catch (...) {
  return impl_->Failed(0);
}

int Qdbase::Create(const char* path, const char* base, int nFields, const QdbField* fields) try {
  if (path == nullptr || base == nullptr || *base == '\0') {
    TarvoTrace("\nQdbase::Create: no path or table name");
    return 0;
  }
  std::string dir = path;
  if (!dir.empty() && dir.back() != '/') dir += '/';
  const std::string file = dir + base + ".dbf";
  std::string upperBase = base;
  for (char& c : upperBase) c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
  const std::string upperFile = dir + upperBase + ".DBF";
  if (nFields < 1 || fields == nullptr) {
    TarvoTrace("\nQdbase::Create %s: no fields", file.c_str());
    return 0;
  }
  if (nFields > (65535 - 33) / 32) {
    TarvoTrace("\nQdbase::Create %s: %d fields are too many", file.c_str(), nFields);
    return 0;
  }
  long total = 1;
  std::vector<qdb::NewField> layout;
  for (int i = 0; i < nFields; ++i) {
    const QdbField& f = fields[i];
    const char* fieldName = f.name != nullptr ? f.name : "";
    const size_t len = strlen(fieldName);
    bool nameOk = len >= 1 && len <= 10 && isalpha(static_cast<unsigned char>(fieldName[0]));
    for (size_t k = 0; nameOk && k < len; ++k) {
      nameOk = isalnum(static_cast<unsigned char>(fieldName[k])) || fieldName[k] == '_';
    }
    if (!nameOk) {
      TarvoTrace("\nQdbase::Create %s: field %d has an invalid name \"%s\"", file.c_str(), i + 1,
                 fieldName);
      return 0;
    }
    for (int j = 0; j < i; ++j) {
      if (fields[j].name != nullptr && strcasecmp(fields[j].name, fieldName) == 0) {
        TarvoTrace("\nQdbase::Create %s: field name %s used twice", file.c_str(), fieldName);
        return 0;
      }
    }
    bool ok = false;
    switch (f.type) {
      case 'C': ok = f.width >= 1 && f.width <= 254 && f.decimals == 0; break;
      case 'N':
        ok = f.width >= 1 && f.width <= 19 && f.decimals >= 0 && f.decimals <= 15 &&
             f.decimals < f.width;
        break;
      case 'L': ok = f.width == 1 && f.decimals == 0; break;
      default: ok = false;
    }
    if (!ok) {
      TarvoTrace("\nQdbase::Create %s: field %s: invalid type '%c', width %d or decimals %d",
                 file.c_str(), fieldName, f.type != '\0' ? f.type : '?', f.width, f.decimals);
      return 0;
    }
    std::string upper = fieldName;
    for (char& c : upper) c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
    layout.push_back({upper, f.type, f.width, f.type == 'N' ? f.decimals : 0});
    total += f.width;
  }
  if (total > 65535) {
    TarvoTrace("\nQdbase::Create %s: records of %ld bytes are too long", file.c_str(), total);
    return 0;
  }
  struct stat st;
  if (lstat(file.c_str(), &st) == 0 || lstat(upperFile.c_str(), &st) == 0) {
    TarvoTrace("\nQdbase::Create %s: the table already exists", file.c_str());
    return 0;
  }
  const std::string bytes = qdb::NewTableHeader(layout) + '\x1A';
  // Claims the name, refusing a file that appeared meanwhile.
  const int fd = open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  if (fd < 0) {
    TarvoTrace("\nQdbase::Create %s: cannot create the file (%s)", file.c_str(), strerror(errno));
    return 0;
  }
  const bool ok = qdb::WriteFully(fd, bytes.data(), bytes.size(), 0);
  close(fd);
  if (!ok) {
    unlink(file.c_str());
    TarvoTrace("\nQdbase::Create %s: writing the table failed", file.c_str());
    return 0;
  }
  return 1;
} catch (...) {
  TarvoTrace("\nQdbase::Create: out of memory");
  return 0;
}
