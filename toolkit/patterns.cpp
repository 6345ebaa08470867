#include "KVFobLink/KVCommonTool.h"
#include "KVFobLink/KVPlatform.h"

bool KVCommonTool::validateString(const std::optional<std::string>& text, std::string_view regExp) {
  return text && KVPlatform::current().patterns->fullMatch(*text, regExp);
}

std::optional<std::string> KVCommonTool::validatedString(std::string_view text,
                                                         std::string_view regExp) {
  return KVPlatform::current().patterns->firstMatch(text, regExp);
}
