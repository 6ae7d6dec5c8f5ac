#include "report/record_json.h"

#include <climits>
#include <cmath>
#include <optional>

#include <nlohmann/json.hpp>

#include "report/text_escape.h"

namespace calder::report {

namespace {

using Json = nlohmann::ordered_json;

Json Text(const std::optional<std::string>& value) { return value ? Json(ToUtf8(*value)) : Json(); }
Json Code(const char* code) { return code != nullptr ? Json(code) : Json(); }
Json Seconds(int64_t ms) { return ms == kNoTime ? Json() : Json(static_cast<double>(ms) / 1000.0); }

std::optional<std::string> TextOf(const Json& value) {
  return value.is_string() ? std::optional<std::string>(value.get<std::string>()) : std::nullopt;
}

int IntOf(const Json& value, int fallback) {
  if (!value.is_number()) return fallback;
  const double number = value.get<double>();
  return number >= INT_MIN && number <= INT_MAX ? static_cast<int>(number) : fallback;
}

// Whole milliseconds of a number of seconds; out of a run's range, none.
int64_t MillisOf(const Json& value) {
  if (!value.is_number()) return kNoTime;
  const double seconds = value.get<double>();
  if (!(seconds >= 0 && seconds < static_cast<double>(kLongestRunMs / 1000 + 1))) return kNoTime;
  return std::llround(seconds * 1000);
}

const Json& Member(const Json& object, const char* name) {
  static const Json none;
  if (!object.is_object()) return none;
  const auto it = object.find(name);
  return it != object.end() ? *it : none;
}

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
  const Json json = Json::parse(line.begin(), line.end(), nullptr, false);
  const Json& schema = Member(json, "schema");
  const std::optional<std::string> kind = TextOf(Member(json, "kind"));
  if (!schema.is_number_integer() || schema.get<int64_t>() != kRecordSchema || !kind ||
      !KindFromCode(*kind, &record->kind)) {
    return false;
  }
  RunRecord& r = *record;
  *file = TextOf(Member(json, "file")).value_or("");
  const auto outcome = TextOf(Member(json, "outcome"));
  if (!outcome || !OutcomeFromCode(*outcome, &r.outcome)) r.outcome = Outcome::kNone;
  const Json& cause = Member(json, "cause");
  const auto causeCode = TextOf(cause);
  if (!causeCode || !CauseFromCode(*causeCode, &r.cause)) r.cause = cause.is_null() ? Cause::kNone : Cause::kUnknown;
  r.evidence = TextOf(Member(json, "evidence"));
  r.started = TextOf(Member(json, "started"));
  const Json& seconds = Member(json, "seconds");
  r.totalMs = MillisOf(Member(seconds, "total"));
  r.touchpadMs = MillisOf(Member(seconds, "touchpad"));
  r.forceMs = MillisOf(Member(seconds, "force"));
  const Json& force = Member(json, "force");
  r.forceBefore = TextOf(Member(force, "before"));
  r.forceTarget = TextOf(Member(force, "target"));
  r.forceAfter = TextOf(Member(force, "after"));
  r.forceAttempts = IntOf(Member(force, "attempts"), 0);
  r.calibrationRescue = Member(force, "calibration_rescue") == true;
  const auto step = TextOf(Member(json, "last_step"));
  if (!step || !StepFromCode(*step, &r.lastStep)) r.lastStep = Step::kNone;
  r.writePercent = IntOf(Member(json, "write_percent"), -1);
  return true;
}

}  // namespace calder::report
