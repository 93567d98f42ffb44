#pragma once
// An output directory built beside its final place and moved there in one rename, so that
// a failure at any step leaves nothing half-written: what was there before stays, and the
// temporary directory goes.
#include <optional>
#include <string>

namespace bwk::bundle {

class StagedOutput {
 public:
  // `target` is the final path; its parent must exist. The temporary directory is made at
  // once. Absent, with the reason, when it cannot be.
  static std::optional<StagedOutput> begin(const std::string& target, std::string* error);
  StagedOutput(StagedOutput&& other) noexcept;
  StagedOutput& operator=(StagedOutput&&) = delete;
  StagedOutput(const StagedOutput&) = delete;
  ~StagedOutput();

  // Where to build.
  const std::string& path() const { return staging_; }
  // Moves the built directory to the target; with `replace`, an existing target is moved
  // aside first and removed once the new one is in place.
  bool commit(bool replace, std::string* error);

 private:
  StagedOutput(std::string target, std::string staging) : target_(std::move(target)), staging_(std::move(staging)) {}
  std::string target_, staging_;
  bool done_ = false;
};

}  // namespace bwk::bundle
