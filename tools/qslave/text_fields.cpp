#include "text_fields.h"

#include <string.h>

std::string FieldText(const char* field, size_t size) {
  std::string text(field, strnlen(field, size));
  const size_t end = text.find_last_not_of(' ');
  text.erase(end == std::string::npos ? 0 : end + 1);
  return text;
}
