#include "KVFobLink/KVCommonTool.h"

KVError KVCommonTool::errorCode(std::int64_t code, std::string_view message,
                                std::optional<std::map<std::string, std::string>> userInfo) {
  return {std::string(message), code, std::move(userInfo)};
}
