#pragma once

#include "base/log.h"

namespace calder::fuzz {

// Fuzzers run millions of inputs: log lines go nowhere.
inline void QuietLog() {
  static const bool done = [] {
    el::Configurations config;
    config.setGlobally(el::ConfigurationType::Enabled, "false");
    el::Loggers::reconfigureLogger(el::Loggers::getLogger("default", true), config);
    el::Loggers::addFlag(el::LoggingFlag::DisableApplicationAbortOnFatalLog);
    return true;
  }();
  (void)done;
}

}  // namespace calder::fuzz
