#pragma once

#include <QtGlobal>
#include <algorithm>
#include <unordered_map>
#include <vector>

// A set of PLU numbers in about two bytes each: the PLUs are grouped by their upper 16 bits,
// each group a sorted array of the lower 16 bits, or a bitmap once that is smaller. An import
// keeps every PLU of a file of millions of rows in it to find a PLU listed twice.
class PluSet {
public:
    // Adds `plu`; false when it was in the set already.
    bool Insert(quint32 plu) {
        Group& group = groups[static_cast<quint16>(plu >> 16)];
        const auto low = static_cast<quint16>(plu & 0xFFFF);
        if (!group.bits.empty()) {
            quint64& word = group.bits[low / 64];
            const quint64 bit = quint64(1) << (low % 64);
            const bool fresh = (word & bit) == 0;
            word |= bit;
            return fresh;
        }
        const auto at = std::lower_bound(group.sorted.begin(), group.sorted.end(), low);
        if (at != group.sorted.end() && *at == low) {
            return false;
        }
        group.sorted.insert(at, low);
        if (group.sorted.size() > bitmapWords * 4) {
            // 4096 lower halves take as much room as the bitmap of all 65536.
            group.bits.assign(bitmapWords, 0);
            for (const quint16 value : group.sorted) {
                group.bits[value / 64] |= quint64(1) << (value % 64);
            }
            std::vector<quint16>().swap(group.sorted);
        }
        return true;
    }

private:
    static constexpr size_t bitmapWords = 65536 / 64;
    struct Group {
        std::vector<quint16> sorted;
        std::vector<quint64> bits;
    };
    std::unordered_map<quint16, Group> groups;
};
