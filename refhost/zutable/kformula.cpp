// kformula and Zu_Frm: a colour formula held as its components.
#include <stdlib.h>
#include <string.h>

#include <cmath>
#include <new>
#include <string>
#include <vector>

#include "formula_round.h"
#include "formula_text.h"
#include "host/zutable.h"

struct kformula::Impl {
  std::vector<FormulaComponent> items;
  bool malformed = false;
  // text() answers a pointer into this; it is rebuilt only after a change
  // so that repeated calls on an unchanged formula keep the pointer valid.
  std::string text;
  bool textValid = false;
};

kformula::kformula() : impl_(new (std::nothrow) Impl) {}

kformula::~kformula() { delete impl_; }

int kformula::set(const char* text) {
  if (impl_ == nullptr) return -1;
  impl_->textValid = false;
  impl_->malformed = !ParseFormulaText(text, &impl_->items);
  return count();
}

int kformula::count() const {
  if (impl_ == nullptr || impl_->malformed) return -1;
  return static_cast<int>(impl_->items.size());
}

int kformula::parse(long long* ids, double* qnts) const {
  int n = count();
  if (n < 0) return -1;
  for (int i = 0; i < n; ++i) {
    if (ids != nullptr) ids[i] = impl_->items[i].id;
    if (qnts != nullptr) qnts[i] = impl_->items[i].qnt;
  }
  return n;
}

namespace {

// Applies convert to every quantity, then rounds. All or nothing: when a
// single result is not finite the formula is left as it was and false is
// returned, since a non-finite quantity could not be written back as text.
template <typename Convert>
bool ConvertAll(std::vector<FormulaComponent>* items, int decimals,
                Convert convert) {
  std::vector<double> results;
  try {
    results.reserve(items->size());
  } catch (const std::bad_alloc&) {
    return false;
  }
  for (const FormulaComponent& c : *items) {
    double q = convert(c);
    if (!std::isfinite(q)) return false;
    results.push_back(RoundQuantity(q, decimals));
  }
  for (size_t i = 0; i < items->size(); ++i) (*items)[i].qnt = results[i];
  return true;
}

bool DecimalsValid(int decimals) {
  return decimals >= 0 && decimals <= kFormulaMaxDecimals;
}

}  // namespace

int kformula::resize(double from, double to, int decimals, int /*flags*/) {
  if (count() < 0) return -1;
  if (!std::isfinite(from) || !std::isfinite(to) || from == 0.0) return -1;
  if (!DecimalsValid(decimals)) return -1;
  bool done = ConvertAll(&impl_->items, decimals,
                         [&](const FormulaComponent& c) {
                           return c.qnt * to / from;
                         });
  if (!done) return -1;
  impl_->textValid = false;
  return count();
}

int kformula::to_volume(CZutable* table, double factor, int decimals,
                        int /*flags*/) {
  if (table == nullptr || count() < 0) return -1;
  // A non-finite factor would leave quantities no text can hold.
  if (!std::isfinite(factor) || !DecimalsValid(decimals)) return -1;

  // One open of the colourant table for the whole formula rather than one
  // per component. The caller's own object serves when it already is the
  // colourant table (its open state and current record are then kept by
  // TmpOpen and SpecificWeight).
  CZutable local;
  CZutable* colorants = table;
  if (table->Handle() != ZUSPEC_COLORANTS) {
    local.SetDataId(table->DataId());
    local.Handle(ZUSPEC_COLORANTS);
    colorants = &local;
  }
  int opened = colorants->TmpOpen();

  int converted = 0;
  bool done = ConvertAll(&impl_->items, decimals,
                         [&](const FormulaComponent& c) {
                           long id = static_cast<long>(c.id);
                           double weight = 0.0;
                           if (opened && id == c.id) {
                             weight = colorants->SpecificWeight(id);
                           }
                           if (weight <= 0.0) return 0.0;
                           ++converted;
                           return c.qnt * factor / (weight / 1000.0);
                         });
  if (opened) colorants->TmpClose();
  if (!done) return -1;
  impl_->textValid = false;
  return converted;
}

int kformula::add(long long id, double qnt, int /*reserved1*/,
                  int /*reserved2*/) {
  if (count() < 0 || !std::isfinite(qnt)) return -1;
  try {
    impl_->items.push_back(FormulaComponent{id, qnt});
  } catch (const std::bad_alloc&) {
    return -1;
  }
  impl_->textValid = false;
  return count();
}

const char* kformula::text() {
  if (count() <= 0) return "";
  if (!impl_->textValid) {
    std::string built;
    for (const FormulaComponent& c : impl_->items) {
      if (!AppendFormulaComponent(c, &built)) return "";
    }
    impl_->text.swap(built);
    impl_->textValid = true;
  }
  return impl_->text.c_str();
}

Zu_Frm::Zu_Frm() : name_(nullptr) {}

Zu_Frm::~Zu_Frm() { free(name_); }

void Zu_Frm::SetName(const char* name) {
  // The copy is made before the old name goes, so SetName(Name()) works;
  // when memory runs out the old name stays.
  char* copy = nullptr;
  if (name != nullptr) {
    copy = strdup(name);
    if (copy == nullptr) return;
  }
  free(name_);
  name_ = copy;
}

const char* Zu_Frm::Name() const { return name_ != nullptr ? name_ : ""; }
