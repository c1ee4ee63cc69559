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
    // The known entries of one directory, by name.
    struct Entries {
        std::map<std::string, KnownFile> files;
        bool areAll = true;  // false if the directory may have further entries

        // The entry of that name, made if there is none. Null if there is no room for it; areAll is false from then on.
        KnownFile* FindOrMake(const std::string& name);
    };

    // Most entries of one directory whose state is known, about 3 MiB. Changes of others are reported without the
    // attributes' values, and not reported if the kernel loses events.
    static constexpr size_t mostEntries = 16384;

    // The file with that watch; null if it is not known. Valid until the next Forget.
    KnownFile* Find(int watch);

    // The entries of each watched directory, by watch.
    std::map<int, Entries>& Directories() { return entries_; }

    // Learns the rule's target, unless it is known already. False if a directory could not be listed because a resource
    // ran out.
    bool Learn(const WatchedRule& rule);

    void Forget(int watch);

    // Learns the file that now has that name in a known directory.
    void LearnEntry(const Place& place, const std::string& directoryPath);

    // Returns the files whose lower link counts have waited long enough, and ends their wait.
    std::vector<int> TakeLinksDue(Clock::Time now, bool isQuiet);

    // When the next link count has waited long enough.
    std::optional<Clock::Time> LinksDue() const;

private:
    std::map<int, KnownFile> files_;
    std::map<int, Entries> entries_;
};

}  // namespace Host
