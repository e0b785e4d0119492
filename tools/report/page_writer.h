#pragma once

#include <nlohmann/json.hpp>
#include <ostream>
#include <string_view>

#include "report/log_columns.h"

namespace trelvo {

// Writes a page: what a browser shows first, then blocks of lines, then the rest and the scripts.
// Nothing of a log is in it as text: data are compressed and in base64.
class PageWriter {
public:
    // The stream must outlive this; whether it took all is for its owner to check.
    explicit PageWriter(std::ostream& out);

    void Add(const LogColumns::Block& block);
    // Nothing may follow.
    void Finish(const nlohmann::ordered_json& head);

private:
    void AppendData(std::string_view id, std::string_view data);

    std::ostream& out_;
    size_t blocks_ = 0;
};

}  // namespace trelvo
