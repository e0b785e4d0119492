#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string_view>
#include <vector>

// The codes of one log tag, by message text: filled once, then only read, by any number of threads.
//
// Rows lie one behind the other in chunks, and an index of open addressing leads to them. No row
// has an allocation of its own, and nothing moves as the table grows.
//
//    n (LEB128)   n bytes    m (LEB128)   m bytes
//   +----------+ +--------+ +----------+ +--------+
//   |          | | text   | |          | | code   |
//   +----------+ +--------+ +----------+ +--------+
//                           '------- stored ------'
//
// Memory beyond texts and codes: the two lengths and 12 bytes of the index a row, while the table
// is filled as well.
class CodeTable {
public:
    // Takes the bytes that `digits` stands for as the code of `text`, in place of those that an
    // earlier row gave it. Returns false, with nothing taken, at a character other than 0 and 1.
    // Throws std::bad_alloc when memory runs out, or the 3.5 GiB that a table may have.
    // REQUIRES: a length of `digits` that is a multiple of 8; Index() was not called.
    bool Add(std::string_view text, std::string_view digits);

    // To be called once, between the last Add() and the first Find().
    void Index();

    // What a record holds instead of the text: LEB128 length and code. Empty when the table lacks
    // this very text; otherwise valid as long as the table.
    [[nodiscard]] std::string_view Find(std::string_view text) const;

    [[nodiscard]] bool IsEmpty() const { return rows_ == 0; }
    // Bytes of memory, those of the index included, whether it is there yet or not.
    [[nodiscard]] size_t Memory() const;

    // Places of the index that finding the text looks at.
    [[nodiscard]] size_t Probes(std::string_view text) const;

private:
    struct Free {
        void operator()(void* memory) const { std::free(memory); }
    };
    struct Chunk {
        std::unique_ptr<unsigned char[], Free> bytes;
        size_t used = 0;
        size_t size = 0;
    };
    struct Slot {
        uint32_t row;   // the number of its chunk, and its place there in the low 21 bits
        uint32_t mark;  // half of the text's hash; the other half chose the slot
    };
    struct Row {
        std::string_view text;
        std::string_view stored;
        size_t size;  // with all lengths
    };

    unsigned char* MakeRoom(size_t size);
    void CloseChunk();

    static Row ReadRow(const unsigned char* bytes);
    [[nodiscard]] Row RowAt(uint32_t row) const;
    // The slot of the text, or the free one that says that there is none.
    [[nodiscard]] size_t SlotOf(std::string_view text, uint64_t hash) const;
    [[nodiscard]] size_t FirstSlot(uint64_t hash) const;

    std::vector<Chunk> chunks_;
    std::unique_ptr<Slot[], Free> slots_;  // at most two thirds are used
    size_t slot_count_ = 0;
    size_t chunk_bytes_ = 0;
    size_t rows_ = 0;  // each of the same text counted
};
