#include "report/log_line.h"

namespace calder::report {

namespace {

constexpr size_t kStampLength = 23;  // "YYYY-MM-DD hh:mm:ss.mmm"
// Where the stamp holds a separator instead of a digit.
constexpr char kStampShape[] = "dddd-dd-dd dd:dd:dd.ddd";

bool Digits(std::string_view text, size_t from, size_t count, int* value) {
  int v = 0;
  for (size_t i = from; i < from + count; ++i) {
    const char c = text[i];
    if (c < '0' || c > '9') return false;
    v = v * 10 + (c - '0');
  }
  *value = v;
  return true;
}

// Days from 1970-01-01 to a date of the proleptic Gregorian calendar.
int64_t DaysFromCivil(int64_t y, unsigned m, unsigned d) {
  y -= m <= 2;
  const int64_t era = (y >= 0 ? y : y - 399) / 400;
  const unsigned yoe = static_cast<unsigned>(y - era * 400);
  const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
  const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + static_cast<int64_t>(doe) - 719468;
}

bool ParseStamp(std::string_view text, int64_t* millis) {
  if (text.size() < kStampLength) return false;
  for (size_t i = 0; i < kStampLength; ++i) {
    if (kStampShape[i] != 'd' && text[i] != kStampShape[i]) return false;
  }
  int year, month, day, hour, minute, second, milli;
  if (!Digits(text, 0, 4, &year) || !Digits(text, 5, 2, &month) || !Digits(text, 8, 2, &day) ||
      !Digits(text, 11, 2, &hour) || !Digits(text, 14, 2, &minute) ||
      !Digits(text, 17, 2, &second) || !Digits(text, 20, 3, &milli)) {
    return false;
  }
  if (month < 1 || month > 12 || day < 1 || day > 31 || hour > 23 || minute > 59 || second > 60) {
    return false;
  }
  const int64_t days = DaysFromCivil(year, static_cast<unsigned>(month), static_cast<unsigned>(day));
  *millis = ((days * 24 + hour) * 60 + minute) * 60000 + second * 1000 + milli;
  return true;
}

// The next blank-free word from pos, which then points past its blank.
bool Word(std::string_view text, size_t* pos, std::string_view* word) {
  const size_t end = text.find(' ', *pos);
  if (end == std::string_view::npos || end == *pos) return false;
  *word = text.substr(*pos, end - *pos);
  *pos = end + 1;
  return true;
}

}  // namespace

bool ParseLogLine(std::string_view text, LogLine* line) {
  if (!text.empty() && text.back() == '\r') text.remove_suffix(1);
  if (!ParseStamp(text, &line->millis)) return false;
  if (text.size() <= kStampLength || text[kStampLength] != ' ') return false;
  line->stamp = text.substr(0, kStampLength);
  size_t pos = kStampLength + 1;
  if (!Word(text, &pos, &line->level) || !Word(text, &pos, &line->file)) return false;
  // "<line>: <message>"; an empty message may have lost its blank.
  size_t digits = pos;
  while (digits < text.size() && text[digits] >= '0' && text[digits] <= '9') ++digits;
  if (digits == pos || digits >= text.size() || text[digits] != ':') return false;
  const size_t start = digits + 1;
  if (start == text.size()) {
    line->message = std::string_view();
    return true;
  }
  if (text[start] != ' ') return false;
  line->message = text.substr(start + 1);
  return true;
}

void IsoStamp(std::string_view stamp, char out[24]) {
  for (size_t i = 0; i < kStampLength; ++i) out[i] = i < stamp.size() ? stamp[i] : '0';
  out[10] = 'T';
  out[kStampLength] = '\0';
}

}  // namespace calder::report
