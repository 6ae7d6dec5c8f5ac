#include "report/fleet_reader.h"

#include <condition_variable>
#include <deque>
#include <filesystem>
#include <memory>
#include <mutex>
#include <thread>

#include "report/line_reader.h"
#include "report/platform_input.h"
#include "report/record_json.h"
#include "report/run_classifier.h"
#include "report/summary_text.h"

namespace calder::report {

namespace fs = std::filesystem;

namespace {

constexpr size_t kQueueDepth = 512;
constexpr size_t kFlushBytes = 64 * 1024;
constexpr int kWorkers = 2;

struct Job {
  fs::path path;
  std::string name;  // as found, for the records
  bool records = false;
};

bool EndsWith(const std::string& text, const char* suffix) {
  const size_t n = std::char_traits<char>::length(suffix);
  return text.size() >= n && text.compare(text.size() - n, n, suffix) == 0;
}

// The walker fills it; the workers drain it. Bounded, so a fleet of any
// size never sits in memory as a list.
class JobQueue {
 public:
  void Push(Job job) {
    std::unique_lock<std::mutex> lock(mutex_);
    space_.wait(lock, [&] { return jobs_.size() < kQueueDepth; });
    jobs_.push_back(std::move(job));
    ready_.notify_one();
  }
  bool Pop(Job* job) {
    std::unique_lock<std::mutex> lock(mutex_);
    ready_.wait(lock, [&] { return !jobs_.empty() || closed_; });
    if (jobs_.empty()) return false;
    *job = std::move(jobs_.front());
    jobs_.pop_front();
    space_.notify_one();
    return true;
  }
  void Close() {
    std::lock_guard<std::mutex> lock(mutex_);
    closed_ = true;
    ready_.notify_all();
  }

 private:
  std::mutex mutex_;
  std::condition_variable ready_;
  std::condition_variable space_;
  std::deque<Job> jobs_;
  bool closed_ = false;
};

class Output {
 public:
  Output(std::FILE* out, std::FILE* err) : out_(out), err_(err) {}
  void Records(std::string* text, bool force) {
    if (text->empty() || (!force && text->size() < kFlushBytes)) return;
    std::lock_guard<std::mutex> lock(mutex_);
    std::fwrite(text->data(), 1, text->size(), out_);
    text->clear();
  }
  void Problem(const std::string& line) {
    std::lock_guard<std::mutex> lock(mutex_);
    std::fprintf(err_, "calder-report: %s\n", ControlsEscaped(line).c_str());
  }

 private:
  std::mutex mutex_;
  std::FILE* out_;
  std::FILE* err_;
};

class Worker {
 public:
  Worker(JobQueue* queue, Output* output, bool json) : queue_(queue), output_(output), json_(json) {}

  void Run() {
    Job job;
    while (queue_->Pop(&job)) {
      if (job.records) {
        ReadRecords(job);
      } else {
        ReadLog(job);
      }
      output_->Records(&records_, false);
    }
    output_->Records(&records_, true);
  }

  FleetRead result;

 private:
  void ReadLog(const Job& job) {
    std::string reason;
    classifier_.Reset();
    const bool read = file_.Open(job.path, &reason) &&
                      lines_.ForEachLine(file_, [&](std::string_view line, bool whole) { classifier_.Feed(line, whole); },
                                         &reason);
    file_.Close();
    RunRecord record;
    if (read) {
      ++result.inputsRead;
      record = classifier_.Finish();
    } else {
      ++result.inputsFailed;
      record.evidence = "cannot be read: " + reason;
      output_->Problem("cannot read " + job.name + ": " + reason);
    }
    result.summary.Add(record, job.name);
    if (json_) AppendRecordJson(record, job.name, &records_);
  }

  void ReadRecords(const Job& job) {
    std::string reason;
    uint64_t bad = 0;
    RunRecord record;
    std::string file;
    const bool read = file_.Open(job.path, &reason) &&
                      lines_.ForEachLine(
                          file_,
                          [&](std::string_view line, bool) {
                            if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
                            if (line.empty()) return;
                            if (!ParseRecordJson(line, &record, &file)) {
                              ++bad;
                              return;
                            }
                            result.summary.Add(record, file);
                            if (json_) {
                              records_.append(line.data(), line.size());
                              records_.push_back('\n');
                            }
                          },
                          &reason);
    file_.Close();
    if (!read) {
      ++result.inputsFailed;
      result.summary.AddInputNotRead(job.name);
      output_->Problem("cannot read " + job.name + ": " + reason);
      return;
    }
    ++result.inputsRead;
    if (bad == 0) return;
    result.summary.AddInputNotRead(job.name, bad);
    output_->Problem(job.name + ": " + std::to_string(bad) + " lines are not records");
  }

  JobQueue* queue_;
  Output* output_;
  bool json_;
  InputFile file_;
  LineReader lines_;
  RunClassifier classifier_;
  std::string records_;
};

// Depth first with one open folder per level. A folder that cannot be opened
// or read to its end, and a link that is not one to a file, is listed and
// counted as a folder not seen, and the walk goes on.
void WalkFolder(const fs::path& root, JobQueue* queue, Output* output, FleetSummary* notRead) {
  struct Level {
    fs::path folder;
    fs::directory_iterator entries;
  };
  std::vector<Level> levels;
  auto fail = [&](const fs::path& folder, const std::string& why) {
    output->Problem("cannot read folder " + folder.u8string() + ": " + why);
    notRead->AddFolderNotSeen(folder.u8string());
  };
  auto enter = [&](const fs::path& folder) {
    std::error_code error;
    fs::directory_iterator entries(folder, error);
    if (error) return fail(folder, error.message());
    levels.push_back({folder, std::move(entries)});
  };
  enter(root);
  while (!levels.empty()) {
    if (levels.back().entries == fs::directory_iterator()) {
      levels.pop_back();
      continue;
    }
    const fs::directory_entry entry = *levels.back().entries;
    std::error_code error;
    levels.back().entries.increment(error);
    if (error) {
      fail(levels.back().folder, error.message());
      levels.pop_back();
    }
    // Decided on the entry itself, not what it points to: a junction is
    // never entered, and a link to a file is read as the file.
    std::error_code typeError;
    const fs::file_status target = entry.status(typeError);
    if (typeError) {
      fail(entry.path(), typeError.message());
      continue;
    }
    const bool link = IsLink(entry.path());
    if (link && !fs::is_regular_file(target)) {
      fail(entry.path(), "a link the walk does not follow");
      continue;
    }
    if (!link && fs::is_directory(target)) {
      enter(entry.path());
      continue;
    }
    if (!IsLogName(entry.path().filename().u8string())) continue;
    if (!fs::is_regular_file(target)) continue;
    queue->Push({entry.path(), entry.path().u8string(), false});
  }
}

void Walk(const std::string& arg, JobQueue* queue, Output* output, FleetSummary* notRead) {
  const fs::path root = fs::u8path(arg);
  std::error_code error;
  const fs::file_status status = fs::status(root, error);
  if (error || !fs::exists(status)) {
    output->Problem("no such file or folder: " + arg);
    notRead->AddInputNotRead(arg);
    return;
  }
  if (!fs::is_directory(status)) {
    queue->Push({root, arg, EndsWith(arg, ".ndjson")});
    return;
  }
  WalkFolder(root, queue, output, notRead);
}

}  // namespace

bool IsLogName(const std::string& name) {
  return name.size() > 11 && name.compare(0, 7, "Calder_") == 0 && EndsWith(name, ".log");
}

FleetRead ReadFleet(const std::vector<std::string>& paths, bool json, std::FILE* out, std::FILE* err) {
  JobQueue queue;
  Output output(out, err);
  std::vector<std::unique_ptr<Worker>> workers;
  std::vector<std::thread> threads;
  for (int i = 0; i < kWorkers; ++i) {
    workers.push_back(std::make_unique<Worker>(&queue, &output, json));
    Worker* w = workers.back().get();
    threads.emplace_back([w] { w->Run(); });
  }
  FleetSummary notRead;
  for (const std::string& path : paths) Walk(path, &queue, &output, &notRead);
  queue.Close();
  for (std::thread& t : threads) t.join();

  FleetRead all;
  all.inputsFailed = notRead.inputsNotRead;
  all.summary.Merge(notRead);
  for (const auto& w : workers) {
    all.summary.Merge(w->result.summary);
    all.inputsRead += w->result.inputsRead;
    all.inputsFailed += w->result.inputsFailed;
  }
  return all;
}

}  // namespace calder::report
