#include "CandleStore.h"

namespace fs = std::filesystem;

CandleStore::CandleStore(std::string id, fs::path const& folder, int scale)
    : id_(std::move(id)),
      scale_(scale),
      work_(folder / id_ / "work"),
      base_(folder / id_ / "base") {}

void CandleStore::OpenEmpty() {
  fs::remove_all(work_);
  fs::create_directories(work_);
  Open();
  holdsBase_ = false;
}

void CandleStore::MakeEmpty() {
  Close();
  OpenEmpty();
}

void CandleStore::RestoreBase() {
  if (holdsBase_) return;
  Close();
  if (fs::exists(base_)) {
    fs::remove_all(work_);
    fs::copy(base_, work_, fs::copy_options::recursive);
  } else {
    BuildBase();
  }
  Open();
  holdsBase_ = true;
}

// Leaves the store closed, holding the base candles, with its copy in base_.
void CandleStore::BuildBase() {
  fs::remove_all(work_);
  fs::create_directories(work_);
  Open();
  LoadBase(BaseCandles().data(), baseCount());
  Close();
  fs::copy(work_, base_, fs::copy_options::recursive);
}

void CandleStore::Insert(const Candle* candles, int count) {
  holdsBase_ = false;
  InsertRecords(candles, count);
}
