#include "SymbolQuery.h"

#include <algorithm>

namespace {

bool Refused(const std::string& what, unsigned int message, int result, std::string* error) {
  *error = what + " (" + std::to_string(message) + " returned " + std::to_string(result) + ")";
  return false;
}

GET_SYMBOL_DATA_REQUEST MakeGetRequest(HostWord handle, const Selection& selection) {
  GET_SYMBOL_DATA_REQUEST request{};
  request.handle = handle;
  request.mode = selection.mode;
  request.firstTime = selection.firstTime;
  request.lastTime = selection.lastTime;
  request.count = selection.count;
  return request;
}

}  // namespace

bool OpenSymbol(ModuleHost& host, Target& target, HostWord* handle, std::string* error) {
  *handle = 0;
  const int result = host.send(HostMessage::OpenSymbol, reinterpret_cast<HostArg>(&target.request),
                               reinterpret_cast<HostArg>(handle));
  if (result == 0 && *handle != 0) return true;
  return Refused("the module did not open the symbol", HostMessage::OpenSymbol, result, error);
}

bool CountRecords(ModuleHost& host, HostWord handle, const Selection& selection,
                  std::int32_t* count, std::string* error) {
  GET_SYMBOL_DATA_REQUEST request = MakeGetRequest(handle, selection);
  const int result = host.send(HostMessage::GetDataCountSend, reinterpret_cast<HostArg>(&request));
  if (result != 0) {
    return Refused("the module refused to count", HostMessage::GetDataCountSend, result, error);
  }
  *count = std::max<std::int32_t>(request.count, 0);
  return true;
}

bool GetRecords(ModuleHost& host, HostWord handle, const Selection& selection, std::int32_t count,
                const RecordLayout& layout, std::vector<unsigned char>* records,
                std::string* error) {
  records->assign(static_cast<std::size_t>(count) * layout.recordSize(), 0);
  GET_SYMBOL_DATA_REQUEST request = MakeGetRequest(handle, selection);
  request.count = count;
  request.buffer = reinterpret_cast<HostWord>(records->data());
  const int result = host.send(HostMessage::GetDataSend, reinterpret_cast<HostArg>(&request));
  if (result != 0) {
    return Refused("the module refused to get", HostMessage::GetDataSend, result, error);
  }
  const std::int32_t delivered = std::clamp<std::int32_t>(request.count, 0, count);
  records->resize(static_cast<std::size_t>(delivered) * layout.recordSize());
  return true;
}

bool ReadRecords(ModuleHost& host, Target& target, const Selection& selection,
                 std::vector<unsigned char>* records, std::string* error) {
  HostWord handle = 0;
  std::int32_t count = 0;
  return OpenSymbol(host, target, &handle, error) &&
         CountRecords(host, handle, selection, &count, error) &&
         GetRecords(host, handle, selection, count, target.layout, records, error);
}
