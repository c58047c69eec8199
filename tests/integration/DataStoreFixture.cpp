#include "DataStoreFixture.h"

#include <cstddef>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>

namespace datastore_test {

namespace {

namespace M = HostMessage;

constexpr char kConfigFile[] = "pelto.cfg";
constexpr char kConfigSection[] = "[DATASTORE]";
constexpr char kLineEnd[] = "\r\n";
constexpr char kSymbolSuffix[] = ".cjd";
constexpr char kLibraryPrefix[] = "libdatastore_";
constexpr auto kPollInterval = std::chrono::milliseconds(2);
constexpr char kSleepingState = 'S';

template <std::size_t N>
void CopyText(char (&field)[N], const std::string& text) {
  std::strncpy(field, text.c_str(), N - 1);
}

void CopyWide(void* field, std::size_t units, const std::u16string& text) {
  // The field lies at an odd offset of a packed record: copy bytes.
  std::memcpy(field, text.data(), std::min(text.size(), units - 1) * sizeof(char16_t));
}

// True when path lies in folder or is folder itself.
bool IsWithin(const fs::path& path, const fs::path& folder) {
  const fs::path relative = path.lexically_normal().lexically_relative(folder.lexically_normal());
  return !relative.empty() && *relative.begin() != "..";
}

}  // namespace

void PrintTo(const Candle& c, std::ostream* out) {
  *out << "{" << c.time << ": " << c.open << " " << c.high << " " << c.low << " " << c.close << " "
       << c.volume << "}";
}

void PrintTo(const Tick& t, std::ostream* out) {
  *out << "{" << t.time << ": " << t.value << " " << t.volume << "}";
}

Candle MakeCandle(std::int32_t time, float tag) {
  const float base = static_cast<float>(time % 1000) + tag;
  return Candle{time, base, base + 2, base - 1, base + 1, tag + 7};
}

std::vector<Candle> Series(int count, std::int32_t first, float tag) {
  std::vector<Candle> candles;
  for (int i = 0; i < count; ++i) candles.push_back(MakeCandle(first + i * kStep, tag));
  return candles;
}

SYMBOL_NAME_PERIOD ToRecord(const SymbolParams& params) {
  SYMBOL_NAME_PERIOD record{};
  CopyText(record.provider, params.provider);
  CopyWide(reinterpret_cast<char*>(&record) + offsetof(SYMBOL_NAME_PERIOD, name), kHostWideNameUnits, params.name);
  CopyText(record.code, params.code);
  record.period.kind = params.kind;
  record.period.length = params.length;
  return record;
}

SYMBOL_NAME_PERIOD_PATH ToRecord(const SymbolParams& params, const fs::path& folder) {
  SYMBOL_NAME_PERIOD_PATH record{};
  record.symbol = ToRecord(params);
  CopyWide(reinterpret_cast<char*>(&record) + offsetof(SYMBOL_NAME_PERIOD_PATH, path), kHostWideNameUnits, folder.u16string());
  return record;
}

TestTree::TestTree() {
  fs::create_directories(config());
  fs::create_directories(log().parent_path());
}

std::string TestTree::copyLibrary() {
  return files_.copy(kLibraryPrefix + std::to_string(copies_++) + ".so");
}

void TestTree::writeConfig(const std::vector<std::string>& lines) const {
  std::ofstream out(config() / kConfigFile, std::ios::binary);
  out << kConfigSection << kLineEnd;
  for (const std::string& line : lines) out << line << kLineEnd;
}

std::vector<fs::path> TestTree::entriesOutside(const std::vector<fs::path>& folders) const {
  std::vector<fs::path> allowed = folders;
  allowed.push_back(config());
  allowed.push_back(log().parent_path());
  std::vector<fs::path> outside;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(root())) {
    const fs::path& path = entry.path();
    const bool library = path.parent_path() == root() &&
                         path.filename().string().starts_with(kLibraryPrefix);
    const auto covers = [&](const fs::path& folder) {  // inside, or a folder on the way
      return IsWithin(path, folder) || IsWithin(folder, path);
    };
    if (!library && std::none_of(allowed.begin(), allowed.end(), covers)) outside.push_back(path);
  }
  return outside;
}

std::vector<fs::path> TestTree::symbolFiles() const {
  std::vector<fs::path> files;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(root())) {
    if (entry.is_regular_file() && entry.path().extension() == kSymbolSuffix) {
      files.push_back(entry.path());
    }
  }
  std::sort(files.begin(), files.end());
  return files;
}

DataStoreSession::DataStoreSession(TestTree& tree, const std::string& provider) {
  const std::string library = tree.copyLibrary();
  EXPECT_TRUE(host_.load(library)) << host_.error();
  host_.setFolder(VD_FOLDER_CONFIG, tree.config().u16string());
  host_.setFolder(VD_FOLDER_DATA, tree.data().u16string());
  host_.setDataSource(provider);
  host_.setModuleHandle(kModuleId);
}

DataStoreSession::~DataStoreSession() { host_.unload(); }

void DataStoreSession::start() {
  ASSERT_TRUE(host_.loaded());
  host_.initialize();
  EXPECT_EQ(send(M::InitModule), 0);
  EXPECT_EQ(send(M::Start), 0);
}

int DataStoreSession::open(const SymbolParams& params, HostWord* handle) {
  SYMBOL_NAME_PERIOD record = ToRecord(params);
  return send(M::OpenSymbol, Arg(&record), Arg(handle));
}

int DataStoreSession::openPath(const SymbolParams& params, const fs::path& folder, HostWord* handle) {
  SYMBOL_NAME_PERIOD_PATH record = ToRecord(params, folder);
  return send(M::OpenSymbolPath, Arg(&record), Arg(handle));
}

HostWord DataStoreSession::open(const SymbolParams& params) {
  HostWord handle = 0;
  EXPECT_EQ(open(params, &handle), 0);
  EXPECT_NE(handle, 0u);
  return handle;
}

int DataStoreSession::count(HostWord handle) {
  GET_SYMBOL_DATA_REQUEST request{};
  request.handle = handle;
  request.mode = kNewest;
  request.count = kEveryRecord;
  return send(M::GetDataCountSend, Arg(&request)) == 0 ? request.count : -1;
}

CompletionSink::CompletionSink() {
  host_.setHandler(
      [this](unsigned int message, HostArg a, HostArg b) { return receive(message, a, b); });
}

CompletionSink::~CompletionSink() { release(); }

void CompletionSink::attach(GET_SYMBOL_DATA_REQUEST& request) {
  request.completionContext = context();
  request.completionCode = kGetDone;
}

void CompletionSink::attach(INSERT_SYMBOL_DATA_REQUEST& request) {
  request.completionContext = context();
  request.completionCode = kInsertDone;
}

void CompletionSink::holdNext() {
  std::lock_guard<std::mutex> lock(mu_);
  holdNext_ = true;
}

bool CompletionSink::waitHeld() {
  std::unique_lock<std::mutex> lock(mu_);
  return changed_.wait_for(lock, kWaitLimit, [this] { return holding_; });
}

void CompletionSink::release() {
  std::lock_guard<std::mutex> lock(mu_);
  holdNext_ = false;
  holding_ = false;
  changed_.notify_all();
}

bool CompletionSink::waitFor(std::size_t count, std::chrono::seconds limit) {
  std::unique_lock<std::mutex> lock(mu_);
  return changed_.wait_for(lock, limit, [&] { return completions_.size() >= count; });
}

std::vector<CompletionSink::Completion> CompletionSink::completions() const {
  std::lock_guard<std::mutex> lock(mu_);
  return completions_;
}

// Copies what the module hands over: the copy is valid during this call only.
int CompletionSink::receive(unsigned int message, HostArg a, HostArg b) {
  Completion completion;
  completion.message = message;
  completion.address = a;
  completion.b = b;
  completion.thread = std::this_thread::get_id();
  const Candle* points = nullptr;
  std::int32_t count = 0;
  if (message == kGetDone) {
    std::memcpy(&completion.get, reinterpret_cast<const void*>(a), sizeof completion.get);
    points = reinterpret_cast<const Candle*>(completion.get.buffer);
    count = completion.get.count;
  } else if (message == kInsertDone) {
    std::memcpy(&completion.insert, reinterpret_cast<const void*>(a), sizeof completion.insert);
    points = reinterpret_cast<const Candle*>(completion.insert.data);
    count = completion.insert.number;
  }
  if (points != nullptr && count > 0) completion.points.assign(points, points + count);
  std::unique_lock<std::mutex> lock(mu_);
  completions_.push_back(std::move(completion));
  holding_ = holdNext_;
  holdNext_ = false;
  changed_.notify_all();
  changed_.wait(lock, [this] { return !holding_; });
  return 0;
}

int ThreadCount() {
  const fs::directory_iterator tasks("/proc/self/task");
  return static_cast<int>(std::distance(fs::begin(tasks), fs::end(tasks)));
}

int BaselineThreadCount() {
  std::thread([] {}).join();
  return ThreadCount();
}

bool WaitUntil(const std::function<bool()>& check) {
  const auto deadline = std::chrono::steady_clock::now() + kWaitLimit;
  while (!check()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(kPollInterval);
  }
  return true;
}

// /proc/self/task/<tid>/stat reads "tid (name) state ...".
bool ThreadSleeps(pid_t tid) {
  const std::string stat = ReadBytes(fs::path("/proc/self/task") / std::to_string(tid) / "stat");
  const std::size_t nameEnd = stat.rfind(')');
  return nameEnd != std::string::npos && nameEnd + 2 < stat.size() &&
         stat[nameEnd + 2] == kSleepingState;
}

std::string ReadBytes(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  std::ostringstream bytes;
  bytes << in.rdbuf();
  return bytes.str();
}

void DataStoreFixture::SetUp() {
  previousDirectory_ = fs::current_path();
  fs::current_path(tree_.root());
}

void DataStoreFixture::TearDown() {
  sink_.release();
  session_.reset();
  fs::current_path(previousDirectory_);
}

DataStoreSession& DataStoreFixture::restart(const std::string& provider) {
  session_.reset();
  session_ = std::make_unique<DataStoreSession>(tree_, provider);
  session_->start();
  return *session_;
}

int DataStoreFixture::postInsert(HostWord handle, std::vector<Candle>& points) {
  INSERT_SYMBOL_DATA_REQUEST request = InsertRequest(handle, points);
  sink_.attach(request);
  return session_->send(HostMessage::InsertDataPost, Arg(&request));
}

int DataStoreFixture::postGet(HostWord handle, std::int32_t mode, std::vector<Candle>& buffer) {
  GET_SYMBOL_DATA_REQUEST request = GetRequest(handle, mode, buffer);
  sink_.attach(request);
  return session_->send(HostMessage::GetDataPost, Arg(&request));
}

}  // namespace datastore_test
