// The report's line parser and classifier on arbitrary bytes: no read outside
// the input, parsed views inside the line, a cause exactly for the runs that
// did not succeed, and a record's JSON line that reads back to the same line.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "report/log_line.h"
#include "report/record_json.h"
#include "report/run_classifier.h"
#include "tests/fuzz/fuzz_input.h"

namespace {

void Check(bool ok, const char* what) { calder::fuzz::Check(ok, "log_line_fuzz", what); }

bool Inside(std::string_view part, std::string_view whole) {
  return part.empty() || (part.data() >= whole.data() && part.data() + part.size() <= whole.data() + whole.size());
}

calder::report::RunRecord Classify(std::string_view text) {
  calder::report::RunClassifier classifier;
  size_t start = 0;
  while (start <= text.size()) {
    size_t end = text.find('\n', start);
    if (end == std::string_view::npos) end = text.size();
    const std::string_view line = text.substr(start, end - start);
    calder::report::LogLine parsed;
    if (calder::report::ParseLogLine(line, &parsed)) {
      Check(Inside(parsed.stamp, line) && Inside(parsed.level, line) && Inside(parsed.file, line) &&
                Inside(parsed.message, line),
            "a parsed part lies outside its line");
      Check(parsed.stamp.size() == 23, "a stamp is not 23 characters");
    }
    classifier.Feed(line, end < text.size());
    start = end + 1;
  }
  return classifier.Finish();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  const calder::report::RunRecord first = Classify(bytes);
  Check((first.cause == calder::report::Cause::kNone) ==
            (first.outcome == calder::report::Outcome::kNone || first.outcome == calder::report::Outcome::kSuccess),
        "a cause without a failure, or a failure without a cause");

  // Bytes that are not UTF-8 are repaired once on the way out; after that a
  // record and its JSON line are each other's image.
  // A path-sized head of the input stands for the file's name.
  std::string json;
  calder::report::AppendRecordJson(first, std::string_view(bytes).substr(0, 80), &json);
  calder::report::RunRecord back;
  std::string file;
  Check(calder::report::ParseRecordJson(std::string_view(json).substr(0, json.size() - 1), &back, &file),
        "a record's own JSON does not read back");
  std::string again;
  calder::report::AppendRecordJson(back, file, &again);
  Check(again == json, "a record reads back different");
  calder::report::ParseRecordJson(std::string_view(bytes).substr(0, 1024), &back, &file);
  return 0;
}
