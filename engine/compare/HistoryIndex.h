#pragma once

#include "engine/compare/History.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kestrel::engine {

// What a history's window lists: every folder any generation had, as one
// tree, and of a folder, every entry directly inside it in any generation,
// each with its state generation by generation. Built once over a history,
// which it borrows.
class HistoryIndex {
public:
    static constexpr int MostGenerations = 256;

    struct Folder {
        std::string name; // empty for the top
        std::string path; // below the root, ending in "/"; empty for the top
        int32_t parent = -1;
        int32_t row = 0;               // among its parent's children
        std::vector<int32_t> children; // by name
        int32_t latestEntry = -1;      // in the latest snapshot, or -1
        // The generations in which something at or below it changed.
        std::array<uint64_t, MostGenerations / 64> changedIn{};
    };

    // An entry directly inside a folder.
    struct Row {
        std::string name;
        int32_t path = -1;        // into History::paths, or -1: it never changed
        int32_t latestEntry = -1; // in the latest snapshot, or -1
        bool folder = false;
    };

    // An entry's state in one generation.
    struct State {
        bool readable = true; // the generation could be read
        bool present = false;
        double size = 0;
        double modified = 0;
        int16_t attributes = 0;
        std::string_view version;
        std::optional<Fingerprint> fingerprint;
        // Permissions, owner and group where the generation has them, and
        // a link's target.
        std::optional<EntryAccess> access;
        std::string_view linkTarget;
        // How it changed from the generation before; Before for not at all.
        HistoryRecord::Kind change = HistoryRecord::Before;
        // For a change of values, the comparison's bits: what differs.
        int16_t changedBits = 0;
        // What about the change calls for attention.
        AccessAlert alert = AccessAlert::None;
    };

    explicit HistoryIndex(const History& history);

    const History& history() const { return m_history; }
    const std::vector<Folder>& folders() const { return m_folders; }
    // Whether something at or below the folder changed in a generation from
    // first to last (both included).
    bool changedIn(int32_t folder, int first, int last) const;
    // The entries directly inside the folder in any generation, folders
    // first, then by name without regard to case.
    std::vector<Row> rowsOf(int32_t folder) const;
    State stateOf(const Row& row, int generation) const;
    // Whether a change of the entry in any generation calls for attention.
    bool callsForAttention(const Row& row) const;

private:
    const History& m_history;
    std::vector<Folder> m_folders;
    std::vector<std::vector<int32_t>> m_recordsByPath;
    // The history's paths directly inside each folder.
    std::vector<std::vector<int32_t>> m_pathsIn;
};

} // namespace kestrel::engine
