// CompanyLock: one process at a time loads, changes and saves a company file, as QuickBooks
// serialises the requests of every application connected to a company.
#pragma once

#include <cstdint>
#include <string>

namespace pelmark::sim {

// Held from construction to destruction: an exclusive OS lock on "<company>.lock" beside the
// company file (the company file itself cannot carry the lock, since every save replaces it with
// a new file). Blocks until the other holder lets go. When the lock file cannot be made (a
// read-only folder) the lock is not held; nothing can be saved there either, so nothing is lost.
class CompanyLock {
  public:
    explicit CompanyLock(const std::string& companyPath);
    ~CompanyLock();
    CompanyLock(const CompanyLock&) = delete;
    CompanyLock& operator=(const CompanyLock&) = delete;

    bool held() const { return held_; }

  private:
    std::intptr_t handle_ = -1;
    bool held_ = false;
};

}  // namespace pelmark::sim
