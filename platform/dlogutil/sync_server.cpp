#include "dlogutil/sync_server.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <systemd/sd-id128.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace dlogutil {
namespace {

constexpr size_t kMaxClients = 16;
constexpr size_t kMaxReply = 4096;
constexpr std::chrono::seconds kMarkAgain(1);
// The journal tells of new entries up to 250 ms late, so they are looked for.
constexpr int kLookMilliseconds = 5;
constexpr std::string_view kMarkerTag = "trelvo.sync";
// With the NUL at its end, as every varlink message.
constexpr char kRequest[] = R"({"method":"io.systemd.Journal.Synchronize"})";

// Empty when nobody listens there.
port::UniqueFd Connect(const char* path, int type) {
    port::UniqueFd fd(socket(AF_UNIX, type | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path, sizeof(address.sun_path) - 1);
    if (fd && connect(fd.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        return {};
    }
    return fd;
}

bool IsGone(const port::UniqueFd& client) {
    pollfd state{client.Get(), 0, 0};
    return poll(&state, 1, 0) != 0;
}

}  // namespace

void SyncServer::AddTo(std::vector<pollfd>& waits) const {
    const size_t clients = round_.size() + next_round_.size();
    waits.push_back({clients < kMaxClients ? listener_.Get() : -1, POLLIN, 0});
    for (const auto* list : {&round_, &next_round_}) {
        for (const port::UniqueFd& client : *list) {
            waits.push_back({client.Get(), 0, 0});  // POLLHUP always counts
        }
    }
    waits.push_back({journal_.Get(), POLLIN, 0});
    for (const Marker& marker : markers_) {
        const bool is_to_be_sent = phase_ == Phase::kMarking && !marker.is_sent;
        waits.push_back({is_to_be_sent ? marker.fd.Get() : -1, POLLOUT, 0});
    }
}

int SyncServer::Timeout() const {
    return phase_ == Phase::kMarking ? kLookMilliseconds : -1;
}

void SyncServer::Process() {
    Accept();
    DropGoneClients();
    if (phase_ == Phase::kAsking) {
        ReadReply();
    } else if (phase_ == Phase::kMarking) {
        SendMarkers();
    }
    if (phase_ == Phase::kIdle && !next_round_.empty()) {
        round_ = std::exchange(next_round_, {});
        Ask();
    }
}

bool SyncServer::TakeMarker(const Fields& fields) {
    if (fields[kIdentifier] != kMarkerTag) {
        return false;
    }
    for (Marker& marker : markers_) {
        marker.is_read = marker.is_read || fields[kMessage] == marker.id;
    }
    EndMarking();
    return true;
}

void SyncServer::Answer() {
    for (const port::UniqueFd& client : round_) {
        static_cast<void>(send(client.Get(), "k", 1, MSG_NOSIGNAL | MSG_DONTWAIT));
    }
    round_.clear();
    phase_ = Phase::kIdle;
}

void SyncServer::Accept() {
    while (round_.size() + next_round_.size() < kMaxClients) {
        port::UniqueFd client(accept4(listener_.Get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (!client) {
            return;
        }
        next_round_.push_back(std::move(client));
    }
}

void SyncServer::DropGoneClients() {
    for (auto* list : {&round_, &next_round_}) {
        list->erase(std::remove_if(list->begin(), list->end(), IsGone), list->end());
    }
    if (round_.empty()) {
        phase_ = Phase::kIdle;
        journal_ = port::UniqueFd();
    }
}

// The journal answers root only, and late: when nothing that was sent to it waits any more.
void SyncServer::Ask() {
    reply_.clear();
    journal_ = geteuid() == 0 ? Connect("/run/systemd/journal/io.systemd.journal", SOCK_STREAM)
                              : port::UniqueFd();
    if (journal_ && send(journal_.Get(), kRequest, sizeof kRequest, MSG_NOSIGNAL) ==
                        static_cast<ssize_t>(sizeof kRequest)) {
        phase_ = Phase::kAsking;
    } else {
        StartMarking();
    }
}

void SyncServer::ReadReply() {
    std::array<char, kMaxReply> buffer{};
    const ssize_t size = read(journal_.Get(), buffer.data(), buffer.size());
    if (size < 0 && (errno == EAGAIN || errno == EINTR)) {
        return;
    }
    reply_.append(buffer.data(), static_cast<size_t>(std::max<ssize_t>(size, 0)));
    const bool is_whole = !reply_.empty() && reply_.back() == '\0';
    if (!is_whole && size > 0 && reply_.size() < kMaxReply) {
        return;
    }
    journal_ = port::UniqueFd();
    if (is_whole && reply_.find("\"error\"") == std::string::npos) {
        phase_ = Phase::kReading;
    } else {
        StartMarking();
    }
}

void SyncServer::StartMarking() {
    journal_ = port::UniqueFd();
    phase_ = Phase::kMarking;
    sd_id128_t id{};
    std::array<char, SD_ID128_STRING_MAX> text{};
    static_cast<void>(sd_id128_randomize(&id));
    int number = 0;
    for (Marker& marker : markers_) {
        marker.id = sd_id128_to_string(id, text.data()) + std::to_string(number++);
        marker.is_sent = marker.is_read = false;
    }
    marked_ = {};
    SendMarkers();
}

void SyncServer::SendMarkers() {
    if (Clock::now() >= marked_ + kMarkAgain) {  // a journal that ended has lost them
        marked_ = Clock::now();
        for (Marker& marker : markers_) {
            marker.fd = Connect(marker.socket, SOCK_DGRAM);
            marker.is_read |= !marker.fd;  // nothing waits where nobody listens
            marker.is_sent = marker.is_read;
        }
    }
    for (Marker& marker : markers_) {
        const std::string text = marker.before + marker.id + marker.after;
        if (!marker.is_sent && marker.fd &&
            (send(marker.fd.Get(), text.data(), text.size(), MSG_NOSIGNAL) >= 0 ||
             errno != EAGAIN)) {
            marker.is_sent = true;
            marker.fd = port::UniqueFd();
        }
    }
    EndMarking();
}

void SyncServer::EndMarking() {
    if (phase_ == Phase::kMarking && markers_[0].is_read && markers_[1].is_read) {
        phase_ = Phase::kReading;
    }
}

}  // namespace dlogutil
