#include "check/report_writer.h"

#include <cstdio>

namespace calder::check {

namespace {

std::string Quoted(const std::string& text) {
  std::string out = "\"";
  for (const char c : text) {
    const unsigned char u = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\') {
      out += '\\';
      out += c;
    } else if (u < 0x20) {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\u%04x", u);
      out += escape;
    } else {
      out += c;
    }
  }
  return out + "\"";
}

std::string Seconds(uint64_t ms) {
  char text[32];
  std::snprintf(text, sizeof text, "%.3f", static_cast<double>(ms) / 1000.0);
  return text;
}

template <typename T>
std::string NumberOrNull(const std::optional<T>& value) {
  return value ? std::to_string(*value) : "null";
}

const char* SeverityName(Severity severity) {
  return severity == Severity::kError ? "error" : "warning";
}

const char* Verdict(const PackageReport& report) { return report.Ship() ? "ship" : "do-not-ship"; }

}  // namespace

std::string JsonReport(const PackageReport& report, bool withLog) {
  std::string out = "{\"verdict\": " + Quoted(Verdict(report)) + ",\n \"findings\": [";
  for (size_t i = 0; i < report.findings.size(); ++i) {
    const Finding& f = report.findings[i];
    out += (i == 0 ? "" : ",") + std::string("\n  {\"severity\": ") + Quoted(SeverityName(f.severity)) +
           ", \"code\": " + Quoted(f.code) + ", \"path\": " + Quoted(f.path) +
           ", \"message\": " + Quoted(f.message) + "}";
  }
  out += "],\n \"files\": [";
  for (size_t i = 0; i < report.files.size(); ++i) {
    const ShippedFile& f = report.files[i];
    out += (i == 0 ? "" : ",") + std::string("\n  {\"path\": ") + Quoted(f.path) +
           ", \"sha256\": " + Quoted(f.sha256) + ", \"signed\": " + (f.isSigned ? "true" : "false") + "}";
  }
  out += "],\n \"touchpad\": ";
  if (const auto& tp = report.touchpad) {
    out += "{\"file\": " + Quoted(tp->file) + ", \"size\": " + std::to_string(tp->size) +
           ", \"sum\": " + std::to_string(tp->sum) +
           ", \"checksum16\": " + std::to_string(tp->checksum16) + "}";
  } else {
    out += "null";
  }
  out += ",\n \"force\": ";
  if (const auto& force = report.force) {
    out += "{\"file\": " + Quoted(force->file) +
           ", \"version\": " + (force->version ? Quoted(*force->version) : "null") +
           ", \"format\": " + Quoted(force->tagged ? "tagged" : "raw") +
           ", \"image_size\": " + NumberOrNull(force->imageSize) +
           ", \"blocks\": " + NumberOrNull(force->blocks) +
           ", \"erase_sectors\": " + NumberOrNull(force->eraseSectors) +
           ", \"readback_chunks\": " + NumberOrNull(force->readbackChunks) + "}";
  } else {
    out += "null";
  }
  const UpdatePrediction& p = report.prediction;
  out += ",\n \"prediction\": {\"result\": " + std::to_string(p.result) +
         ", \"force_phase_seconds\": " + (p.forcePhaseRan ? Seconds(p.forcePhaseMs) : "null") +
         ", \"update_seconds\": " + Seconds(p.updateMs);
  if (withLog) {
    out += ",\n  \"log\": [";
    for (size_t i = 0; i < p.log.size(); ++i) out += (i == 0 ? "\n   " : ",\n   ") + Quoted(p.log[i]);
    out += "]";
  }
  return out + "}}\n";
}

std::string TextReport(const PackageReport& report, bool withLog) {
  std::string out;
  for (const Finding& f : report.findings) {
    out += std::string(f.severity == Severity::kError ? "error  " : "warning") + " " + f.code +
           " " + f.path + ": " + f.message + "\n";
  }
  if (report.findings.empty()) out += "no findings\n";
  if (const auto& tp = report.touchpad) {
    char sums[64];
    std::snprintf(sums, sizeof sums, "sum %u, low 16 bits 0x%04X", tp->sum, tp->checksum16);
    out += "touchpad:   TP/" + tp->file + ", " + std::to_string(tp->size) + " bytes, " + sums + "\n";
  } else {
    out += "touchpad:   none\n";
  }
  if (const auto& force = report.force) {
    out += "force:      Force/" + force->file + ", version " + force->version.value_or("(none)") +
           ", " + (force->tagged ? "tagged" : "raw");
    if (force->imageSize) {
      out += ", image " + std::to_string(*force->imageSize) + " bytes, " +
             std::to_string(*force->blocks) + " blocks, " + std::to_string(*force->eraseSectors) +
             " erase sectors, " + std::to_string(*force->readbackChunks) + " read-back chunks";
    } else {
      out += ", refused by the loader";
    }
    out += "\n";
  } else {
    out += "force:      none\n";
  }
  const UpdatePrediction& p = report.prediction;
  out += "prediction: calder.exe --update returns " + std::to_string(p.result) +
         "; force phase " + (p.forcePhaseRan ? Seconds(p.forcePhaseMs) + " s" : "not reached") +
         "; whole update " + Seconds(p.updateMs) + " s\n";
  out += std::string("verdict:    ") + Verdict(report) + "\n";
  if (withLog) {
    out += "log of the predicted run:\n";
    for (const std::string& line : p.log) out += "  " + line + "\n";
  }
  return out;
}

}  // namespace calder::check
