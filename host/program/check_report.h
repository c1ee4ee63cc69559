// The lines that orlim-agent check prints.
#pragma once

#include <string>

namespace Host {

// Each call adds one line, whatever bytes its arguments bring. For one thread.
class CheckReport {
public:
    void Ok(const std::string& what, const std::string& detail);
    // Detection works, but not all of it; cost says what is lost.
    void Limited(const std::string& what, const std::string& cost);
    // Without it there is no detection worth the name.
    void Missing(const std::string& what, const std::string& cost);

    bool SomethingMissing() const { return somethingMissing_; }
    const std::string& Text() const { return text_; }

private:
    void Add(const char* word, const std::string& what, const std::string& detail);

    std::string text_;
    bool somethingMissing_ = false;
};

}  // namespace Host
