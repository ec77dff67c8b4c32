// CZutable: opens one table of a colourant-data set through Qdbase.
#include <limits.h>

#include <cmath>
#include <new>
#include <string>

#include "data_dir.h"
#include "host/qdbase.h"
#include "host/qdsp32.h"
#include "host/zutable.h"

namespace {

struct TableLayout {
  int zuspec;
  const char* base;
  const char* indexName;
  const char* indexKey;
};

// The cans table is keyed on the id as five right-aligned characters, the
// form in which the host's own programs look cans up.
const TableLayout kLayouts[] = {
    {ZUSPEC_COLORANTS, "colorants", "ID", "ID"},
    {ZUSPEC_CANS, "cans", "ID", "STR(ID,5)"},
};

const TableLayout* FindLayout(int zuspec) {
  for (const TableLayout& layout : kLayouts) {
    if (layout.zuspec == zuspec) return &layout;
  }
  return nullptr;
}

int BindFiles(Qdbase* table, const std::string& dir,
              const TableLayout& layout) {
  const char* names[] = {layout.indexName};
  const char* keys[] = {layout.indexKey};
  return table->SetFiles(dir.c_str(), layout.base, 1, names, keys);
}

// Puts a table back in the order and on the record it was found in, so a
// lookup leaves a caller's navigation as it was.
class PositionKeeper {
 public:
  explicit PositionKeeper(Qdbase* table)
      : table_(table), idx_(table->CurrentIdx()), recno_(table->RecNo()) {}
  ~PositionKeeper() {
    table_->SelectIdx(idx_);
    if (recno_ > 0) {
      table_->Go(recno_);
    } else if (table_->Bottom()) {
      table_->Next();  // it was at its end; step past the last record again
    }
  }
  PositionKeeper(const PositionKeeper&) = delete;
  PositionKeeper& operator=(const PositionKeeper&) = delete;

 private:
  Qdbase* table_;
  int idx_;
  long recno_;
};

double ReadWeight(Qdbase* table, long id) {
  PositionKeeper keeper(table);
  if (!table->SelectIdx(1) || !table->Seek(static_cast<double>(id))) return 0.0;
  // The key went through a double; make sure it is this very id.
  long found = 0;
  if (!table->ReadLong("ID", &found) || found != id) return 0.0;
  if (table->IsDeleted()) return 0.0;
  double weight = 0.0;
  if (!table->ReadDouble("SPEC_W", &weight)) return 0.0;
  return std::isfinite(weight) && weight > 0.0 ? weight : 0.0;
}

}  // namespace

struct CZutable::Impl {
  long dataId = 0;
  int handle = ZUSPEC_NONE;
  Qdbase* table = nullptr;  // set only while open
  // TmpOpen calls not yet matched by TmpClose, and whether the first of
  // them is the one that opened the table (and so TmpClose must close it).
  int tmpDepth = 0;
  bool tmpOwned = false;
  mutable std::string fileName;
};

CZutable::CZutable() : impl_(new (std::nothrow) Impl) {}

CZutable::~CZutable() {
  Close();
  delete impl_;
}

void CZutable::SetDataId(long dataId) {
  if (impl_ == nullptr || dataId == impl_->dataId) return;
  // An open table belongs to the old data set.
  Close();
  impl_->dataId = dataId;
}

long CZutable::DataId() const { return impl_ != nullptr ? impl_->dataId : 0; }

int CZutable::Handle(int zuspec) {
  if (impl_ == nullptr) return ZUSPEC_NONE;
  int previous = impl_->handle;
  if (zuspec != previous) {
    Close();
    impl_->handle = zuspec;
  }
  return previous;
}

int CZutable::Handle() const {
  return impl_ != nullptr ? impl_->handle : ZUSPEC_NONE;
}

int CZutable::Open() {
  if (impl_ == nullptr) return 0;
  if (impl_->table != nullptr) {
    // An explicit Open claims a table TmpOpen opened: it stays open.
    impl_->tmpOwned = false;
    return 1;
  }
  const TableLayout* layout = FindLayout(impl_->handle);
  if (layout == nullptr) return 0;
  std::string dir;
  if (!DataSetDirectory(impl_->dataId, &dir)) {
    TarvoTrace("\nCZutable: the data directory cannot be told; %s not opened",
               layout->base);
    return 0;
  }
  Qdbase* table = new (std::nothrow) Qdbase;
  if (table == nullptr) return 0;
  // Qdbase traces the reason when the file cannot be opened.
  if (!BindFiles(table, dir, *layout) || !table->Open()) {
    delete table;
    return 0;
  }
  impl_->table = table;
  return 1;
}

int CZutable::TmpOpen() {
  if (impl_ == nullptr || impl_->tmpDepth == INT_MAX) return 0;
  if (impl_->table == nullptr) {
    if (!Open()) return 0;
    impl_->tmpOwned = true;
  }
  ++impl_->tmpDepth;
  return 1;
}

int CZutable::TmpClose() {
  if (impl_ == nullptr || impl_->tmpDepth == 0) return 0;
  if (--impl_->tmpDepth == 0 && impl_->tmpOwned) Close();
  return 1;
}

int CZutable::Close() {
  if (impl_ == nullptr) return 0;
  impl_->tmpDepth = 0;
  impl_->tmpOwned = false;
  if (impl_->table == nullptr) return 0;
  impl_->table->Close();
  delete impl_->table;
  impl_->table = nullptr;
  return 1;
}

int CZutable::IsOpen() const {
  return impl_ != nullptr && impl_->table != nullptr;
}

Qdbase* CZutable::Table() { return impl_ != nullptr ? impl_->table : nullptr; }

double CZutable::SpecificWeight(long id) {
  if (impl_ == nullptr) return 0.0;
  if (impl_->handle != ZUSPEC_COLORANTS) {
    CZutable colorants;
    colorants.SetDataId(impl_->dataId);
    colorants.Handle(ZUSPEC_COLORANTS);
    return colorants.SpecificWeight(id);
  }
  if (!TmpOpen()) return 0.0;
  double weight = ReadWeight(impl_->table, id);
  TmpClose();
  return weight;
}

const char* CZutable::FileName() const {
  if (impl_ == nullptr) return "";
  if (impl_->table != nullptr) return impl_->table->FileName();
  // Closed: bind a scratch table to learn the name Open would use (Qdbase
  // settles between lower- and upper-case file names).
  const TableLayout* layout = FindLayout(impl_->handle);
  std::string dir;
  Qdbase probe;
  if (layout == nullptr || !DataSetDirectory(impl_->dataId, &dir) ||
      !BindFiles(&probe, dir, *layout)) {
    return "";
  }
  try {
    impl_->fileName = probe.FileName();
  } catch (const std::bad_alloc&) {
    return "";
  }
  return impl_->fileName.c_str();
}
