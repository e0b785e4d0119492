#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <list>

namespace trelvo {

// What hostile dumps cannot make a program take, however many of them it reads: memory beyond
// 64 MiB and two bytes for each byte of the files, and more than a few open files at a time. Both
// are counted for the whole process, by one thread.

// An input that holds a descriptor or buffers while it is used. Of all such inputs only those that
// were used last stay so; each further one parks the one whose use was longest ago.
class Parkable {
public:
    Parkable() = default;
    Parkable(const Parkable&) = delete;
    Parkable& operator=(const Parkable&) = delete;
    virtual ~Parkable() { Leave(); }

    // Parks the one whose use was longest ago, but for the last two: a file, and what decompresses
    // it. False when there is none.
    static bool ParkOldest();

protected:
    // Notes that this is used now. Before it takes a descriptor or buffers.
    void Use();
    // Notes that it holds neither any more.
    void Leave();

private:
    using Active = std::list<Parkable*>;

    // Gives back what it holds; the next use takes it again.
    virtual void Park() = 0;

    static Active& All();

    Active::iterator place_;  // the later, the later used
    bool active_ = false;
};

// Bytes of memory that somebody holds, counted as long as this lives.
class MemoryCharge {
public:
    // In the words of an error.
    static constexpr const char* kExceeded =
        "needs more memory than 64 MiB and 2 bytes for each byte of the files";

    // The bytes of an input, which let more memory be taken; a regular file counts once.
    static void Admit(uint64_t bytes);
    static void AdmitFile(const struct stat& status);

    MemoryCharge() = default;
    MemoryCharge(MemoryCharge&& other) noexcept : bytes_(other.bytes_) { other.bytes_ = 0; }
    MemoryCharge& operator=(MemoryCharge&& other) noexcept;
    ~MemoryCharge();

    // False, and all stays as it is, where that is too much. Parks inputs before it gives up.
    [[nodiscard]] bool Set(uint64_t bytes);
    [[nodiscard]] bool Add(uint64_t bytes) { return Set(bytes_ + bytes); }

private:
    uint64_t bytes_ = 0;
};

}  // namespace trelvo
