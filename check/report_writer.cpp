#include "check/report_writer.h"

#include <cstdio>

#include <nlohmann/json.hpp>

namespace calder::check {

namespace {

using Json = nlohmann::ordered_json;

std::string Seconds(uint64_t ms) {
  char text[32];
  std::snprintf(text, sizeof text, "%.3f", static_cast<double>(ms) / 1000.0);
  return text;
}

template <typename T>
Json NumberOrNull(const std::optional<T>& value) {
  return value ? Json(*value) : Json();
}

const char* SeverityName(Severity severity) {
  return severity == Severity::kError ? "error" : "warning";
}

const char* Verdict(const PackageReport& report) { return report.Ship() ? "ship" : "do-not-ship"; }

const char* JudgedBy(const SignatureDetails& details) {
  return details.timestamped ? "its timestamp" : "the time of the check";
}

}  // namespace

std::string JsonReport(const PackageReport& report, bool withLog) {
  Json out = {{"verdict", Verdict(report)}, {"findings", Json::array()}, {"files", Json::array()}};
  for (const Finding& f : report.findings) {
    out["findings"].push_back(
        {{"severity", SeverityName(f.severity)}, {"code", f.code}, {"path", f.path}, {"message", f.message}});
  }
  for (const ShippedFile& f : report.files) {
    Json file = {{"path", f.path}, {"sha256", f.sha256}, {"signed", f.isSigned}};
    if (const auto& s = f.signature) {
      file["signature"] = {{"signer", s->signer},       {"issuers", s->issuers},
                           {"algorithm", s->algorithm}, {"judged_at", TimeText(s->judgedAt)},
                           {"judged_by", JudgedBy(*s)}};
    }
    out["files"].push_back(file);
  }
  out["touchpad"] = nullptr;
  if (const auto& tp = report.touchpad) {
    out["touchpad"] = {{"file", tp->file}, {"size", tp->size}, {"sum", tp->sum}, {"checksum16", tp->checksum16}};
  }
  out["force"] = nullptr;
  if (const auto& force = report.force) {
    out["force"] = {{"file", force->file},
                    {"version", NumberOrNull(force->version)},
                    {"format", force->tagged ? "tagged" : "raw"},
                    {"image_size", NumberOrNull(force->imageSize)},
                    {"blocks", NumberOrNull(force->blocks)},
                    {"erase_sectors", NumberOrNull(force->eraseSectors)},
                    {"readback_chunks", NumberOrNull(force->readbackChunks)}};
  }
  const UpdatePrediction& p = report.prediction;
  Json& prediction = out["prediction"] = {{"result", p.result}};
  prediction["force_phase_seconds"] = p.forcePhaseRan ? Json(static_cast<double>(p.forcePhaseMs) / 1000.0) : Json();
  prediction["update_seconds"] = static_cast<double>(p.updateMs) / 1000.0;
  if (withLog) prediction["log"] = p.log;
  // Names and log lines from a package may hold bytes that are no UTF-8.
  return out.dump(1, ' ', false, Json::error_handler_t::replace) + "\n";
}

std::string TextReport(const PackageReport& report, bool withLog) {
  std::string out;
  for (const Finding& f : report.findings) {
    out += std::string(f.severity == Severity::kError ? "error  " : "warning") + " " + f.code +
           " " + f.path + ": " + f.message + "\n";
  }
  if (report.findings.empty()) out += "no findings\n";
  for (const ShippedFile& f : report.files) {
    if (!f.signature) continue;
    const SignatureDetails& s = *f.signature;
    out += "signature:  " + f.path + " by \"" + s.signer + "\" (" + s.algorithm + "); issuers";
    for (const std::string& issuer : s.issuers) out += std::string(&issuer == &s.issuers[0] ? " \"" : ", \"") + issuer + "\"";
    if (s.issuers.empty()) out += " none";
    out += "; judged at " + TimeText(s.judgedAt) + ", " + JudgedBy(s) + "\n";
  }
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
