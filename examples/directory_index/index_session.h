// One run of the program: the components, the folder they are told of, what they report.
#pragma once

#include "examples/directory_index/catalogue.h"
#include "examples/directory_index/console.h"
#include "examples/directory_index/file_walker.h"
#include "examples/directory_index/folder_follower.h"
#include "examples/directory_index/payloads.h"
#include "examples/directory_index/pending_work.h"

#include <event_routing/component_host.h>

#include <memory>
#include <string>
#include <system_error>
#include <vector>

namespace directory_index {

class index_session {
public:
    struct options {
        std::string folder;
        bool watch = false;
        bool gitignore = false; ///< what the folder's .gitignore names is left out
        std::vector<std::string> own_outputs = {}; ///< whose changes are nobody's news
        printer show = &print;
    };

    /// Loads the components; complains of each that cannot be used and goes on without it.
    index_session(services to, options chosen);

    bool all_components_are_there() const noexcept { return all_components_are_there_; }

    /// Tells the components of the folder, until `stop`, and waits for what they make of it.
    /// Returns why the folder cannot be opened.
    std::error_code index(zel::platform::event& stop);

    /// Reports what changes until `stop`. Returns why the folder cannot be opened any more.
    std::error_code follow(zel::platform::event& stop);

    void print_handlers();
    void print_report();
    /// True when all questions were answered.
    bool print_answers(const std::vector<std::string>& words);

private:
    void settle();
    std::error_code apply(const changes& seen, std::string& news);
    std::error_code look_again_below(const std::string& folder, std::string& news);
    void look_again(const std::string& file, std::string& news);
    bool is_stopped() const { return stop_ && stop_->wait(zel::platform::milliseconds::zero()); }
    bool is_own_output(const std::string& file) const;
    void print_changes(const std::string& news);

    void break_off_when_stopped();

    const services to_;
    const options chosen_;
    const std::unique_ptr<zel::platform::folder_watch> watch_; // none unless it is to be followed
    catalogue told_;
    file_walker walker_;
    pending_work work_;
    zel::platform::event* stop_ = nullptr; // of what is being done
    const cookie is_working_;
    zel::event_routing::component_host components_;
    bool all_components_are_there_ = true;
    bool has_complained_of_unwatched_ = false;
    std::vector<report_section> reported_;
};

} // namespace directory_index
