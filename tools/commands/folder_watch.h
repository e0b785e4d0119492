#pragma once

#include <string>

namespace trelvo {

// Tells of dumps that are completed in a folder.
class FolderWatch {
public:
    // Throws std::system_error with the folder's name when it cannot be watched.
    explicit FolderWatch(std::string folder);
    FolderWatch(const FolderWatch&) = delete;
    FolderWatch& operator=(const FolderWatch&) = delete;
    ~FolderWatch();

    // Waits for the next dump that was written or moved there since the watch began, and gives its
    // path. Empty when the folder itself is gone.
    [[nodiscard]] std::string Wait();

private:
    std::string folder_;
    int fd_;
    std::string events_;  // read, not taken yet
};

}  // namespace trelvo
