// The known state of all targets of rules, and of the entries of watched directories.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "host/watch/known_file.h"
#include "host/watch/watched_rule.h"

namespace Host {

// One thread at a time.
class KnownFiles {
public:
    using Entries = std::map<std::string, KnownFile>;

    // Entries of one directory of which the state is known, about 3 MiB. Changes of others are reported without the
    // attributes' values, and not reported if the kernel loses events.
    static constexpr size_t mostEntries = 16384;

    // The file with that watch; null if nothing is known of it. Valid until the next Forget.
    KnownFile* Find(int watch);

    // By watch.
    std::map<int, Entries>& Directories() { return entries_; }

    // Takes the rule's target, unless it is known already. False if a directory's entries could not be
    // listed for want of something.
    bool Learn(const WatchedRule& rule);

    void Forget(int watch);

    // Takes the file that has that name in a known directory now.
    void LearnEntry(const Place& place, const std::string& directoryPath);

    // Files whose lower link counts have waited long enough. They wait no more.
    std::vector<int> TakeLinksDue(Clock::Time now, bool isQuiet);

    // When the next one has.
    std::optional<Clock::Time> LinksDue() const;

private:
    std::map<int, KnownFile> files_;
    std::map<int, Entries> entries_;
};

}  // namespace Host
