#include "replay/replay_command.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include "replay/replay_run.h"
#include "trace/trace_reader.h"
#include "sim/trace/trace_decoder.h"

namespace calder::replay {

namespace {

using OrderedJson = nlohmann::ordered_json;

constexpr char kUsage[] =
    "usage: calder-replay [--decode] [--json] --package DIR TRACE...\n"
    "  replays calder.exe --update against recorded library traces (NDJSON);\n"
    "  --decode prints the traces as the protocol reads instead, several merged in the\n"
    "  order the laptop saw them (no --package needed)\n"
    "exit codes: 0 every recorded call made, 4 divergence, 5 trace ends before the run,\n"
    "  3 the recorder refused to load the vendor library (nothing recorded),\n"
    "  2 bad arguments, an unreadable trace or two traces of one library\n";

struct Options {
  bool decode = false;
  bool json = false;
  std::string package;
  std::vector<std::string> traces;
};

bool ParseOptions(const std::vector<std::string>& args, Options* options, std::string* error) {
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    if (arg == "--decode") {
      options->decode = true;
    } else if (arg == "--json") {
      options->json = true;
    } else if (arg == "--package") {
      if (i + 1 == args.size()) {
        *error = "--package needs a folder";
        return false;
      }
      options->package = args[++i];
    } else if (arg.size() > 1 && arg[0] == '-') {
      *error = "unknown option " + arg;
      return false;
    } else {
      options->traces.push_back(arg);
    }
  }
  std::error_code ec;
  if (options->traces.empty()) {
    *error = "no trace given";
  } else if (!options->decode && options->package.empty()) {
    *error = "--package is needed to replay";
  } else if (!options->decode && !std::filesystem::is_directory(options->package, ec)) {
    *error = options->package + " is not a folder";
  }
  return error->empty();
}

std::string Ms(double ms) {
  char text[32];
  std::snprintf(text, sizeof text, "%.3f", ms);
  return text;
}

struct DecodedLine {
  const Trace* trace;
  const TraceLine* line;
  std::string text;
};

// Every trace decoded in its own order, then all lines in the laptop's: by
// the moment each stands for, on the clock the traces of a run share.
ReplayCommandOutcome Decode(const std::vector<Trace>& traces, bool json) {
  ReplayCommandOutcome outcome;
  outcome.exitCode = 0;
  std::vector<DecodedLine> rows;
  OrderedJson files = OrderedJson::array();
  for (const Trace& trace : traces) {
    TraceDecoder decoder(trace.library);
    if (!json) outcome.out += trace.name + ": " + LibraryFile(trace.library) + "\n";
    files.push_back({{"trace", trace.name}, {"library", LibraryFile(trace.library)}});
    for (const std::string& note : trace.notes) outcome.err += "note: " + note + "\n";
    for (const TraceLine& line : trace.lines) rows.push_back({&trace, &line, decoder.Decode(line)});
  }
  std::stable_sort(rows.begin(), rows.end(),
                   [](const DecodedLine& a, const DecodedLine& b) { return a.line->tUs < b.line->tUs; });
  OrderedJson lines = OrderedJson::array();
  for (const DecodedLine& row : rows) {
    if (json) {
      lines.push_back({{"trace", row.trace->name}, {"seq", row.line->seq}, {"t_us", row.line->tUs},
                       {"ret_us", row.line->retUs ? OrderedJson(*row.line->retUs) : OrderedJson(nullptr)},
                       {"text", row.text}});
    } else {
      const std::string library = traces.size() > 1 ? std::string(LibraryName(row.trace->library)) + "  " : "";
      outcome.out += DecodedRow(*row.line, library + row.text) + "\n";
    }
  }
  if (json) {
    const OrderedJson all = {{"traces", files}, {"lines", lines}};
    outcome.out = all.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
  }
  return outcome;
}

std::string Verdict(int exitCode) {
  return exitCode == kReplayMatched  ? "match"
         : exitCode == kReplayCutOff ? "cut-off"
                                     : "divergence";
}

ReplayCommandOutcome Report(const std::vector<Trace>& traces, const ReplayOutcome& r, bool json) {
  ReplayCommandOutcome outcome;
  outcome.exitCode = r.exitCode;
  std::vector<std::string> notes;
  for (const Trace& trace : traces) notes.insert(notes.end(), trace.notes.begin(), trace.notes.end());
  if (json) {
    OrderedJson j;
    j["result"] = Verdict(r.exitCode);
    j["exit"] = r.exitCode;
    j["update_result"] = r.runResult;
    j["traces"] = OrderedJson::array();
    for (const TraceProgress& t : r.traces) {
      j["traces"].push_back({{"trace", t.trace}, {"calls", t.calls}, {"matched", t.matched}});
    }
    if (r.state.divergence) {
      const Divergence& d = *r.state.divergence;
      j["divergence"] = {{"trace", d.trace}, {"call", d.call}, {"expected", d.expected},
                         {"actual", d.actual}, {"before", d.before}};
    }
    j["pacing"] = OrderedJson::array();
    for (const PacingWarning& p : r.state.pacing) {
      j["pacing"].push_back({{"trace", p.trace}, {"call", p.call}, {"recorded_pause_ms", p.recordedPauseMs},
                             {"replayed_pause_ms", p.replayedPauseMs}, {"decoded", p.decoded}});
    }
    j["notes"] = notes;
    outcome.out = j.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
    return outcome;
  }
  std::string& out = outcome.out;
  for (const std::string& note : notes) out += "note: " + note + "\n";
  for (const TraceProgress& t : r.traces) {
    out += t.trace + ": " + std::to_string(t.matched) + " of " + std::to_string(t.calls) + " calls matched\n";
  }
  for (const PacingWarning& p : r.state.pacing) {
    out += "pacing warning at call " + std::to_string(p.call) + " (" + p.decoded + "): recorded pause " +
           Ms(p.recordedPauseMs) + " ms, replayed " + Ms(p.replayedPauseMs) + " ms\n";
  }
  if (r.state.divergence) {
    const Divergence& d = *r.state.divergence;
    out += "divergence at call " + std::to_string(d.call) + ": " + d.trace + "\n";
    out += "  expected  " + d.expected + "\n";
    out += "  actual    " + d.actual + "\n";
    out += "  last matching calls before it:\n";
    for (const std::string& row : d.before) out += "    " + row + "\n";
  } else if (r.exitCode == kReplayCutOff) {
    out += "every recorded call matched, but the run went on after the trace ended (a cut-off recording)\n";
  } else {
    out += "the run made exactly the recorded calls\n";
  }
  out += "update returned " + std::to_string(r.runResult) + "; exit " + std::to_string(r.exitCode) + "\n";
  return outcome;
}

}  // namespace

ReplayCommandOutcome RunReplayCommand(const std::vector<std::string>& args) {
  ReplayCommandOutcome outcome;
  Options options;
  std::string error;
  if (!ParseOptions(args, &options, &error)) {
    outcome.err = "calder-replay: " + error + "\n" + kUsage;
    return outcome;
  }
  std::vector<Trace> traces(options.traces.size());
  for (size_t i = 0; i < traces.size(); ++i) {
    if (!ReadTraceFile(options.traces[i], &traces[i], &error)) {
      outcome.err = "calder-replay: " + error + "\n";
      return outcome;
    }
  }
  if (options.decode) return Decode(traces, options.json);
  const ReplayOutcome replayed = ReplayUpdate(traces, options.package);
  if (!replayed.problem.empty()) {
    outcome.exitCode = replayed.exitCode;
    outcome.err = "calder-replay: " + replayed.problem + "\n";
    return outcome;
  }
  return Report(traces, replayed, options.json);
}

}  // namespace calder::replay
