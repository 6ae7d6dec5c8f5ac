#include "trace/json_value.h"

#include <cstring>

namespace calder {
namespace {

constexpr int kMaxDepth = 32;

class JsonReader {
 public:
  explicit JsonReader(const std::string& text) : text_(text) {}

  bool Document(JsonValue* value) {
    Blanks();
    if (!Value(value, 0)) return false;
    Blanks();
    return at_ == text_.size();
  }

 private:
  void Blanks() {
    while (at_ < text_.size() &&
           (text_[at_] == ' ' || text_[at_] == '\t' || text_[at_] == '\r' || text_[at_] == '\n')) {
      ++at_;
    }
  }
  bool Next(char c) {
    Blanks();
    if (at_ < text_.size() && text_[at_] == c) {
      ++at_;
      return true;
    }
    return false;
  }
  bool Word(const char* word) {
    const size_t size = std::strlen(word);
    if (text_.compare(at_, size, word) != 0) return false;
    at_ += size;
    return true;
  }

  bool Value(JsonValue* value, int depth) {
    Blanks();
    if (at_ == text_.size() || depth > kMaxDepth) return false;
    const char c = text_[at_];
    if (c == '{') return Object(value, depth);
    if (c == '[') return Array(value, depth);
    if (c == '"') {
      value->kind = JsonValue::Kind::kString;
      return String(&value->text);
    }
    if (Word("null")) {
      value->kind = JsonValue::Kind::kNull;
      return true;
    }
    if (Word("true") || Word("false")) {
      value->kind = JsonValue::Kind::kBool;
      value->boolean = c == 't';
      return true;
    }
    return Number(value);
  }

  bool Object(JsonValue* value, int depth) {
    ++at_;
    value->kind = JsonValue::Kind::kObject;
    if (Next('}')) return true;
    do {
      std::pair<std::string, JsonValue> member;
      Blanks();
      if (at_ == text_.size() || text_[at_] != '"' || !String(&member.first) || !Next(':') ||
          !Value(&member.second, depth + 1)) {
        return false;
      }
      value->members.push_back(std::move(member));
    } while (Next(','));
    return Next('}');
  }

  bool Array(JsonValue* value, int depth) {
    ++at_;
    value->kind = JsonValue::Kind::kArray;
    if (Next(']')) return true;
    do {
      value->items.emplace_back();
      if (!Value(&value->items.back(), depth + 1)) return false;
    } while (Next(','));
    return Next(']');
  }

  bool Digits() {
    const size_t start = at_;
    while (at_ < text_.size() && text_[at_] >= '0' && text_[at_] <= '9') ++at_;
    return at_ > start;
  }

  bool Number(JsonValue* value) {
    const bool negative = at_ < text_.size() && text_[at_] == '-';
    if (negative) ++at_;
    const size_t digits = at_;
    if (!Digits() || (text_[digits] == '0' && at_ - digits > 1)) return false;
    bool whole = true;
    if (at_ < text_.size() && text_[at_] == '.') {
      ++at_;
      if (!Digits()) return false;
      whole = false;
    }
    if (at_ < text_.size() && (text_[at_] == 'e' || text_[at_] == 'E')) {
      ++at_;
      if (at_ < text_.size() && (text_[at_] == '+' || text_[at_] == '-')) ++at_;
      if (!Digits()) return false;
      whole = false;
    }
    value->kind = JsonValue::Kind::kNumber;
    if (!whole) return true;
    // Accumulated negative, so INT64_MIN fits; a longer number stays kNumber.
    int64_t sum = 0;
    for (size_t i = digits; i < at_; ++i) {
      const int digit = text_[i] - '0';
      if (sum < (INT64_MIN + digit) / 10) return true;
      sum = sum * 10 - digit;
    }
    if (!negative && sum == INT64_MIN) return true;
    value->kind = JsonValue::Kind::kInt;
    value->integer = negative ? sum : -sum;
    return true;
  }

  bool Hex4(uint32_t* unit) {
    if (text_.size() - at_ < 4) return false;
    *unit = 0;
    for (int i = 0; i < 4; ++i) {
      const char c = text_[at_++];
      const int digit = c >= '0' && c <= '9'   ? c - '0'
                        : c >= 'a' && c <= 'f' ? c - 'a' + 10
                        : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                               : -1;
      if (digit < 0) return false;
      *unit = *unit << 4 | static_cast<uint32_t>(digit);
    }
    return true;
  }

  static void Utf8(uint32_t point, std::string* out) {
    if (point < 0x800) {
      *out += static_cast<char>(0xC0 | point >> 6);
    } else {
      if (point < 0x10000) {
        *out += static_cast<char>(0xE0 | point >> 12);
      } else {
        *out += static_cast<char>(0xF0 | point >> 18);
        *out += static_cast<char>(0x80 | (point >> 12 & 0x3F));
      }
      *out += static_cast<char>(0x80 | (point >> 6 & 0x3F));
    }
    *out += static_cast<char>(0x80 | (point & 0x3F));
  }

  // "\u0000".."\u00ff" is that one byte; a higher code point is its UTF-8.
  bool Escape(std::string* out) {
    if (at_ == text_.size()) return false;
    const char c = text_[at_++];
    static const char kShort[] = "\"\"\\\\//b\bf\fn\nr\rt\t";
    for (size_t i = 0; i + 1 < sizeof kShort; i += 2) {
      if (c == kShort[i]) {
        *out += kShort[i + 1];
        return true;
      }
    }
    uint32_t unit = 0;
    if (c != 'u' || !Hex4(&unit)) return false;
    if (unit <= 0xFF) {
      *out += static_cast<char>(unit);
      return true;
    }
    if (unit >= 0xDC00 && unit <= 0xDFFF) return false;
    if (unit >= 0xD800 && unit <= 0xDBFF) {
      uint32_t low = 0;
      if (!Word("\\u") || !Hex4(&low) || low < 0xDC00 || low > 0xDFFF) return false;
      unit = 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
    }
    Utf8(unit, out);
    return true;
  }

  bool String(std::string* out) {
    ++at_;
    while (at_ < text_.size()) {
      const unsigned char c = static_cast<unsigned char>(text_[at_++]);
      if (c == '"') return true;
      if (c < 0x20) return false;
      if (c == '\\') {
        if (!Escape(out)) return false;
      } else {
        *out += static_cast<char>(c);
      }
    }
    return false;
  }

  const std::string& text_;
  size_t at_ = 0;
};

}  // namespace

const JsonValue* JsonValue::Find(const char* key) const {
  const JsonValue* found = nullptr;
  for (const auto& member : members) {
    if (member.first == key) found = &member.second;
  }
  return found;
}

bool ParseJson(const std::string& text, JsonValue* value) {
  *value = JsonValue();
  return JsonReader(text).Document(value);
}

}  // namespace calder
