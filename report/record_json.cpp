#include "report/record_json.h"

#include <charconv>

#include <nlohmann/json.hpp>

#include "report/text_escape.h"

namespace calder::report {

namespace {

using Json = nlohmann::ordered_json;

Json Text(const std::optional<std::string>& value) { return value ? Json(ToUtf8(*value)) : Json(); }
Json Code(const char* code) { return code != nullptr ? Json(code) : Json(); }
Json Seconds(int64_t ms) { return ms == kNoTime ? Json() : Json(static_cast<double>(ms) / 1000.0); }

// A small reader for the records written above: objects, strings, numbers,
// true, false and null; nothing nests deeper than the records do.
class Reader {
 public:
  Reader(std::string_view text, RunRecord* record, std::string* file)
      : text_(text), record_(record), file_(file) {}

  bool Read() {
    if (!Object("", 0)) return false;
    Blanks();
    return pos_ == text_.size() && schema_ == kRecordSchema && haveKind_;
  }

 private:
  void Blanks() {
    while (pos_ < text_.size() &&
           (text_[pos_] == ' ' || text_[pos_] == '\t' || text_[pos_] == '\r' || text_[pos_] == '\n')) {
      ++pos_;
    }
  }
  bool Take(char c) {
    Blanks();
    if (pos_ < text_.size() && text_[pos_] == c) {
      ++pos_;
      return true;
    }
    return false;
  }
  bool Word(std::string_view word) {
    if (text_.substr(pos_, word.size()) != word) return false;
    pos_ += word.size();
    return true;
  }
  static void PutUtf8(uint32_t code, std::string* out) {
    if (code < 0x80) {
      out->push_back(static_cast<char>(code));
    } else if (code < 0x800) {
      out->push_back(static_cast<char>(0xC0 | (code >> 6)));
      out->push_back(static_cast<char>(0x80 | (code & 0x3F)));
    } else if (code < 0x10000) {
      out->push_back(static_cast<char>(0xE0 | (code >> 12)));
      out->push_back(static_cast<char>(0x80 | ((code >> 6) & 0x3F)));
      out->push_back(static_cast<char>(0x80 | (code & 0x3F)));
    } else {
      out->push_back(static_cast<char>(0xF0 | (code >> 18)));
      out->push_back(static_cast<char>(0x80 | ((code >> 12) & 0x3F)));
      out->push_back(static_cast<char>(0x80 | ((code >> 6) & 0x3F)));
      out->push_back(static_cast<char>(0x80 | (code & 0x3F)));
    }
  }
  bool Hex4(uint32_t* value) {
    if (pos_ + 4 > text_.size()) return false;
    const auto [end, error] = std::from_chars(text_.data() + pos_, text_.data() + pos_ + 4, *value, 16);
    if (error != std::errc() || end != text_.data() + pos_ + 4) return false;
    pos_ += 4;
    return true;
  }
  bool String(std::string* out) {
    if (!Take('"')) return false;
    out->clear();
    while (pos_ < text_.size()) {
      const char c = text_[pos_++];
      if (c == '"') return true;
      if (c != '\\') {
        out->push_back(c);
        continue;
      }
      if (pos_ >= text_.size()) return false;
      const char e = text_[pos_++];
      switch (e) {
        case 'n': out->push_back('\n'); break;
        case 't': out->push_back('\t'); break;
        case 'r': out->push_back('\r'); break;
        case 'b': out->push_back('\b'); break;
        case 'f': out->push_back('\f'); break;
        case 'u': {
          uint32_t code;
          if (!Hex4(&code)) return false;
          if (code >= 0xD800 && code < 0xDC00 && Word("\\u")) {
            uint32_t low;
            if (!Hex4(&low) || low < 0xDC00 || low > 0xDFFF) return false;
            code = 0x10000 + ((code - 0xD800) << 10) + (low - 0xDC00);
          }
          PutUtf8(code, out);
          break;
        }
        default: out->push_back(e);
      }
    }
    return false;
  }
  // A scalar as its text; null gives false in *present.
  bool Scalar(std::string* value, bool* present, bool* isString) {
    Blanks();
    *present = true;
    *isString = false;
    if (pos_ < text_.size() && text_[pos_] == '"') {
      *isString = true;
      return String(value);
    }
    if (Word("null")) {
      *present = false;
      return true;
    }
    const size_t start = pos_;
    while (pos_ < text_.size() && std::string_view("-+.eE0123456789truefals").find(text_[pos_]) !=
                                      std::string_view::npos) {
      ++pos_;
    }
    *value = std::string(text_.substr(start, pos_ - start));
    return pos_ > start;
  }
  bool Object(const std::string& path, int depth) {
    if (depth > 2 || !Take('{')) return false;
    if (Take('}')) return true;
    do {
      std::string key;
      if (!String(&key) || !Take(':')) return false;
      const std::string name = path.empty() ? key : path + "." + key;
      Blanks();
      if (pos_ < text_.size() && text_[pos_] == '{') {
        if (!Object(name, depth + 1)) return false;
        continue;
      }
      std::string value;
      bool present, isString;
      if (!Scalar(&value, &present, &isString)) return false;
      Field(name, present ? &value : nullptr, isString);
    } while (Take(','));
    return Take('}');
  }
  static int64_t Millis(const std::string& text) {
    const size_t dot = text.find('.');
    long long whole = 0;
    std::from_chars(text.data(), text.data() + (dot == std::string::npos ? text.size() : dot), whole);
    if (whole < 0 || whole > kLongestRunMs / 1000) return kNoTime;
    int64_t ms = whole * 1000;
    if (dot != std::string::npos) {
      int scale = 100;
      for (size_t i = dot + 1; i < text.size() && scale > 0; ++i, scale /= 10) {
        if (text[i] >= '0' && text[i] <= '9') ms += (text[i] - '0') * scale;
      }
    }
    return ms;
  }
  void Field(const std::string& name, const std::string* value, bool isString) {
    RunRecord& r = *record_;
    const auto text = [&]() { return value ? std::optional<std::string>(*value) : std::nullopt; };
    const auto number = [&](int fallback) {
      int n = fallback;
      if (value && !isString) std::from_chars(value->data(), value->data() + value->size(), n);
      return n;
    };
    if (name == "schema") {
      schema_ = number(0);
    } else if (name == "file") {
      if (value) *file_ = *value;
    } else if (name == "kind") {
      haveKind_ = value && KindFromCode(*value, &r.kind);
    } else if (name == "outcome") {
      if (!value || !OutcomeFromCode(*value, &r.outcome)) r.outcome = Outcome::kNone;
    } else if (name == "cause") {
      if (!value || !CauseFromCode(*value, &r.cause)) r.cause = value ? Cause::kUnknown : Cause::kNone;
    } else if (name == "evidence") {
      r.evidence = text();
    } else if (name == "started") {
      r.started = text();
    } else if (name == "seconds.total") {
      r.totalMs = value ? Millis(*value) : kNoTime;
    } else if (name == "seconds.touchpad") {
      r.touchpadMs = value ? Millis(*value) : kNoTime;
    } else if (name == "seconds.force") {
      r.forceMs = value ? Millis(*value) : kNoTime;
    } else if (name == "force.before") {
      r.forceBefore = text();
    } else if (name == "force.target") {
      r.forceTarget = text();
    } else if (name == "force.after") {
      r.forceAfter = text();
    } else if (name == "force.attempts") {
      r.forceAttempts = number(0);
    } else if (name == "force.calibration_rescue") {
      r.calibrationRescue = value && *value == "true";
    } else if (name == "last_step") {
      if (!value || !StepFromCode(*value, &r.lastStep)) r.lastStep = Step::kNone;
    } else if (name == "write_percent") {
      r.writePercent = number(-1);
    }
  }

  std::string_view text_;
  size_t pos_ = 0;
  RunRecord* record_;
  std::string* file_;
  int schema_ = 0;
  bool haveKind_ = false;
};

}  // namespace

void AppendRecordJson(const RunRecord& r, std::string_view file, std::string* out) {
  const Json record = {
      {"schema", kRecordSchema},
      {"file", ToUtf8(file)},
      {"kind", Code(KindCode(r.kind))},
      {"outcome", Code(OutcomeCode(r.outcome))},
      {"cause", Code(CauseCode(r.cause))},
      {"evidence", Text(r.evidence)},
      {"started", Text(r.started)},
      {"seconds", {{"total", Seconds(r.totalMs)}, {"touchpad", Seconds(r.touchpadMs)}, {"force", Seconds(r.forceMs)}}},
      {"force",
       {{"before", Text(r.forceBefore)},
        {"target", Text(r.forceTarget)},
        {"after", Text(r.forceAfter)},
        {"attempts", r.forceAttempts},
        {"calibration_rescue", r.calibrationRescue}}},
      {"last_step", Code(StepCode(r.lastStep))},
      {"write_percent", r.writePercent >= 0 ? Json(r.writePercent) : Json()}};
  out->append(record.dump());
  out->push_back('\n');
}

bool ParseRecordJson(std::string_view line, RunRecord* record, std::string* file) {
  *record = RunRecord();
  file->clear();
  return Reader(line, record, file).Read();
}

}  // namespace calder::report
