#include "encoding/fast_convert.h"

#include <iconv.h>

#include <array>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "code_page_text.h"
#include "encoding/encodings.h"
#include "encoding/utf8_scan.h"
#include "qzk_basic.h"

namespace qz::strconv {

constexpr char32_t no_char = 0xFFFFFFFF;

struct byte_table {
    // The character of each byte; no_char for a byte the page does not define.
    char32_t decode[256];
    // The byte of each character below U+10000, by blocks of 256: -1 where
    // the page has no byte for it.
    const int16_t* blocks[256] = {};
    std::vector<std::array<int16_t, 256>> storage;
    // The UTF-8 bytes of each byte's character (in the low bytes of the
    // word, in order) and their count; a count of 0 where decode has none.
    uint32_t utf8[256];
    uint8_t utf8_len[256];

    int encode(char32_t c) const {
        if (c >= 0x10000) return -1;
        const int16_t* block = blocks[c >> 8];
        return block ? block[c & 0xFF] : -1;
    }

    static const byte_table* get(unsigned cp);
};

namespace {

// Reads one strictly well-formed UTF-8 character (no overlong forms, no
// surrogates, nothing above U+10FFFF); false for anything else.
inline bool utf8_next(const unsigned char*& p, const unsigned char* end, char32_t& c) {
    unsigned b0 = p[0];
    size_t left = static_cast<size_t>(end - p);
    if (b0 < 0x80) {
        c = b0;
        ++p;
        return true;
    }
    auto cont = [](unsigned b) { return (b & 0xC0) == 0x80; };
    if (b0 < 0xC2) return false;
    if (b0 < 0xE0) {
        if (left < 2 || !cont(p[1])) return false;
        c = ((b0 & 0x1F) << 6) | (p[1] & 0x3F);
        p += 2;
        return true;
    }
    if (b0 < 0xF0) {
        if (left < 3 || !cont(p[1]) || !cont(p[2])) return false;
        if (b0 == 0xE0 && p[1] < 0xA0) return false;  // overlong
        if (b0 == 0xED && p[1] > 0x9F) return false;  // surrogate
        c = ((b0 & 0x0F) << 12) | ((p[1] & 0x3F) << 6) | (p[2] & 0x3F);
        p += 3;
        return true;
    }
    if (b0 < 0xF5) {
        if (left < 4 || !cont(p[1]) || !cont(p[2]) || !cont(p[3])) return false;
        if (b0 == 0xF0 && p[1] < 0x90) return false;  // overlong
        if (b0 == 0xF4 && p[1] > 0x8F) return false;  // above U+10FFFF
        c = ((b0 & 0x07) << 18) | ((p[1] & 0x3F) << 12) | ((p[2] & 0x3F) << 6) | (p[3] & 0x3F);
        p += 4;
        return true;
    }
    return false;
}

inline char* utf8_put(char* o, char32_t c) {
    if (c < 0x80) {
        *o++ = static_cast<char>(c);
    } else if (c < 0x800) {
        *o++ = static_cast<char>(0xC0 | (c >> 6));
        *o++ = static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        *o++ = static_cast<char>(0xE0 | (c >> 12));
        *o++ = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        *o++ = static_cast<char>(0x80 | (c & 0x3F));
    } else {
        *o++ = static_cast<char>(0xF0 | (c >> 18));
        *o++ = static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        *o++ = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        *o++ = static_cast<char>(0x80 | (c & 0x3F));
    }
    return o;
}

// Length of the leading run of whole eight-byte words of ASCII (without a
// zero byte when `to_nul`).
inline size_t ascii_words(const unsigned char* p, const unsigned char* end, bool to_nul) {
    const unsigned char* q = p;
    while (end - q >= 8) {
        uint64_t w;
        std::memcpy(&w, q, 8);
        uint64_t zero = (w - 0x0101010101010101ull) & ~w & 0x8080808080808080ull;
        if ((w & 0x8080808080808080ull) | (to_nul ? zero : 0)) break;
        q += 8;
    }
    return static_cast<size_t>(q - p);
}

// Length of the leading run of ASCII bytes, eight at a time.
inline size_t ascii_run(const unsigned char* p, size_t len) {
    size_t i = 0;
    for (; i + 8 <= len; i += 8) {
        uint64_t w;
        std::memcpy(&w, p + i, 8);
        if (w & 0x8080808080808080ull) break;
    }
    while (i < len && p[i] < 0x80) ++i;
    return i;
}

// Single-byte pages that iconv converts without state. CP1255 and CP1258
// are left out: iconv composes their combining marks with the letter before.
bool single_byte_page(unsigned cp) {
    switch (cp) {
        case 866:
        case 1250:
        case 1251:
        case 1252:
        case 1253:
        case 1254:
        case 1256:
        case 1257:
        case 20127:
            return true;
        default:
            return false;
    }
}

// One character through a fresh-state descriptor; false unless the input is
// taken whole and gives exactly `want` bytes of output.
bool convert_one(iconv_t cd, const void* in, size_t in_len, void* out, size_t want) {
    iconv(cd, nullptr, nullptr, nullptr, nullptr);
    char* ip = static_cast<char*>(const_cast<void*>(in));
    size_t il = in_len;
    char buf[16];
    char* op = buf;
    size_t ol = sizeof buf;
    if (iconv(cd, &ip, &il, &op, &ol) == static_cast<size_t>(-1) || il != 0) return false;
    if (sizeof buf - ol != want) return false;
    std::memcpy(out, buf, want);
    return true;
}

std::unique_ptr<byte_table> build_table(unsigned cp) {
    const char* name = qz_code_page_iconv_name(cp);
    if (!name || !single_byte_page(cp)) return nullptr;
    iconv_t dec = iconv_open("WCHAR_T", name);
    iconv_t enc = iconv_open(name, "WCHAR_T");
    const iconv_t bad = reinterpret_cast<iconv_t>(-1);
    std::unique_ptr<byte_table> t;
    if (dec != bad && enc != bad) {
        t = std::make_unique<byte_table>();
        std::map<unsigned, std::array<int16_t, 256>> blocks;
        for (unsigned b = 0; b < 256; ++b) {
            unsigned char byte = static_cast<unsigned char>(b);
            wchar_t w = 0;
            t->decode[b] = no_char;
            t->utf8[b] = 0;
            t->utf8_len[b] = 0;
            if (!convert_one(dec, &byte, 1, &w, sizeof w)) continue;
            t->decode[b] = static_cast<char32_t>(w);
            if (w >= 0 && w <= 0x10FFFF && !(w >= 0xD800 && w <= 0xDFFF)) {
                char bytes[4] = {0, 0, 0, 0};
                char* end = utf8_put(bytes, static_cast<char32_t>(w));
                std::memcpy(&t->utf8[b], bytes, 4);
                t->utf8_len[b] = static_cast<uint8_t>(end - bytes);
            }
            // Only a character that iconv turns back into the same byte is
            // encoded here; anything else goes the general way.
            unsigned char back = 0;
            if (w < 0 || w >= 0x10000 || !convert_one(enc, &w, sizeof w, &back, 1) || back != b)
                continue;
            auto [it, fresh] = blocks.try_emplace(static_cast<unsigned>(w) >> 8);
            if (fresh) it->second.fill(-1);
            it->second[static_cast<unsigned>(w) & 0xFF] = static_cast<int16_t>(b);
        }
        // Text of plain ASCII is copied as it is; that needs a page that
        // agrees with ASCII.
        if (t) {
            for (unsigned b = 0; b < 0x80; ++b) {
                if (t->decode[b] != b) {
                    t.reset();
                    break;
                }
            }
        }
        if (t) {
            t->storage.reserve(blocks.size());
            for (auto& [hi, block] : blocks) {
                t->storage.push_back(block);
                t->blocks[hi] = t->storage.back().data();
            }
            for (unsigned b = 0; b < 0x80; ++b)
                if (t->encode(b) != static_cast<int>(b)) {
                    t.reset();
                    break;
                }
        }
    }
    if (dec != bad) iconv_close(dec);
    if (enc != bad) iconv_close(enc);
    return t;
}

}  // namespace

void text_converter::resolve_pair_again(unsigned from_cp, unsigned to_cp, unsigned system) {
    // The sides stay where they are until a third and fourth code page are
    // asked for; the pair is looked up again then.
    const side& a = resolve(from_cp ? from_cp : system);
    pair_a_ = &a;
    pair_b_ = &resolve(to_cp ? to_cp : system, &a);
    pair_from_ = from_cp;
    pair_to_ = to_cp;
    pair_system_ = system;
    pair_tables_ = pair_a_->kind != k_other && pair_b_->kind != k_other;
}

void text_converter::narrow(unsigned from_cp, unsigned to_cp, const char* src, size_t len,
                            bool to_nul, text_buffer& out) {
    resolve_pair(from_cp, to_cp);
    convert_text(src, len, to_nul, false, out);
}

const char* text_converter::convert_text(const char* src, size_t len, bool to_nul, bool keep,
                                         text_buffer& out) {
    const side& a = *pair_a_;
    const side& b = *pair_b_;
    if (!src) {
        out.set_size(0);
        return nullptr;
    }
    if (a.kind != k_other && b.kind != k_other) {
        const auto* const start = reinterpret_cast<const unsigned char*>(src);
        const auto* p = start;
        const auto* end = p + len;
        // The leading run of plain ASCII (up to the terminator) converts to
        // itself between these pages.
        for (;;) {
            while (end - p >= 8) {
                uint64_t w;
                std::memcpy(&w, p, 8);
                uint64_t zero = (w - 0x0101010101010101ull) & ~w & 0x8080808080808080ull;
                if ((w & 0x8080808080808080ull) | (to_nul ? zero : 0)) break;
                p += 8;
            }
            if (p == end || *p >= 0x80 || (*p == 0 && to_nul)) break;
            ++p;
        }
        bool fast = true;
        if (p < end && *p >= 0x80 && a.cp == b.cp) {
            // One page on both sides: the text stays as it is when all of it
            // is valid there.
            if (a.kind == k_utf8) {
                const size_t rest = static_cast<size_t>(end - p);
                const size_t n = to_nul ? strnlen(reinterpret_cast<const char*>(p), rest) : rest;
                if (utf8_well_formed(p, n))
                    p += n;
                else
                    fast = false;
            } else {
                while (p < end) {
                    if (*p < 0x80) {
                        if (*p == 0 && to_nul) break;
                        ++p;
                        p += ascii_words(p, end, to_nul);
                        continue;
                    }
                    if (a.table->decode[*p++] == no_char) {
                        fast = false;
                        break;
                    }
                }
            }
        } else if (p < end && *p >= 0x80) {
            // The prefix as it is, then character by character: at most three
            // bytes of UTF-8 for a byte of a single-byte page (and four bytes of
            // room, as the table copies whole words), never more bytes than
            // came in otherwise.
            size_t prefix = static_cast<size_t>(p - start);
            char* o0 = out.reserve(prefix + (len - prefix) * 3 + 4);
            std::memcpy(o0, start, prefix);
            char* o = o0 + prefix;
            while (p < end) {
                unsigned c0 = *p;
                if (c0 < 0x80) {
                    if (c0 == 0 && to_nul) break;
                    *o++ = static_cast<char>(c0);
                    ++p;
                    size_t run = ascii_words(p, end, to_nul);
                    std::memcpy(o, p, run);
                    o += run;
                    p += run;
                    continue;
                }
                if (a.kind == k_bytes && b.kind == k_utf8) {
                    unsigned n = a.table->utf8_len[c0];
                    if (n == 0) {
                        fast = false;
                        break;
                    }
                    std::memcpy(o, &a.table->utf8[c0], 4);
                    o += n;
                    ++p;
                    continue;
                }
                char32_t c;
                if (a.kind == k_utf8) {
                    if (!utf8_next(p, end, c)) {
                        fast = false;
                        break;
                    }
                } else {
                    c = a.table->decode[*p++];
                    if (c == no_char) {
                        fast = false;
                        break;
                    }
                }
                if (b.kind == k_utf8) {
                    o = utf8_put(o, c);
                } else {
                    int e = b.table->encode(c);
                    if (e < 0) {
                        fast = false;
                        break;
                    }
                    *o++ = static_cast<char>(e);
                }
            }
            if (fast) {
                out.set_size(static_cast<size_t>(o - o0));
                return nullptr;
            }
        }
        if (fast) {
            // Nothing to change: hand the text back where it is, or copy it.
            if (keep && to_nul && p < end && *p == 0) return src;
            out.assign(src, static_cast<size_t>(p - start));
            return nullptr;
        }
    }
    if (a.iconv_name.empty() || b.iconv_name.empty()) {
        out.set_size(0);
        return nullptr;
    }
    if (to_nul) len = strnlen(src, len);
    std::string general =
        convert<std::string>(src, len, a.iconv_name.c_str(), b.iconv_name.c_str(), nullptr);
    out.assign(general.data(), general.size());
    return nullptr;
}

const byte_table* byte_table::get(unsigned cp) {
    static std::mutex mutex;
    static std::map<unsigned, std::unique_ptr<byte_table>> tables;
    std::lock_guard<std::mutex> lock(mutex);
    auto it = tables.find(cp);
    if (it == tables.end()) it = tables.emplace(cp, build_table(cp)).first;
    return it->second.get();
}

const text_converter::side& text_converter::resolve(unsigned cp, const side* keep) {
    if (cp == 0) cp = qz_options_get_ansi_code_page();
    for (const side& s : sides_)
        if (s.cp == cp) return s;
    constexpr unsigned n = sizeof sides_ / sizeof sides_[0];
    if (&sides_[next_] == keep) next_ = (next_ + 1) % n;
    side& s = sides_[next_];
    next_ = (next_ + 1) % n;
    // The narrow pair may have pointed here.
    if (pair_a_ == &s || pair_b_ == &s) pair_from_ = pair_to_ = 0xFFFFFFFF;
    s.cp = cp;
    const char* name = qz_code_page_iconv_name(cp);
    s.iconv_name = name ? name : "";
    s.table = nullptr;
    s.kind = k_other;
    if (cp == 65001) {
        s.kind = k_utf8;
    } else if (name) {
        s.table = byte_table::get(cp);
        if (s.table) s.kind = k_bytes;
    }
    return s;
}

void text_converter::to_wide(unsigned cp, const char* src, size_t len, std::wstring& out) {
    const side& s = resolve(cp);
    if (!src || len == 0 || len > 0x7FFFFFFF) {
        out.clear();
        return;
    }
    if (s.kind != k_other) {
        out.resize(len);
        const auto* p = reinterpret_cast<const unsigned char*>(src);
        const auto* end = p + len;
        wchar_t* o = out.data();
        bool fast = true;
        while (p < end) {
            char32_t c;
            if (*p < 0x80) {
                c = *p++;
            } else if (s.kind == k_utf8) {
                if (!utf8_next(p, end, c)) {
                    fast = false;
                    break;
                }
            } else {
                c = s.table->decode[*p++];
                if (c == no_char) {
                    fast = false;
                    break;
                }
            }
            *o++ = static_cast<wchar_t>(c);
        }
        if (fast) {
            out.resize(static_cast<size_t>(o - out.data()));
            return;
        }
    }
    out = qz::basic::cp_to_wide(s.cp, src, len);
}

void text_converter::from_wide(unsigned cp, const wchar_t* src, size_t len, std::string& out) {
    const side& s = resolve(cp);
    if (!src || len == 0 || len > 0x7FFFFFFF) {
        out.clear();
        return;
    }
    if (s.kind != k_other) {
        out.resize(len * 4);
        char* o = out.data();
        bool fast = true;
        for (size_t i = 0; i < len; ++i) {
            wchar_t w = src[i];
            if (w >= 0 && w < 0x80) {
                *o++ = static_cast<char>(w);
                continue;
            }
            if (s.kind == k_utf8) {
                // Surrogates and values past U+10FFFF are not characters.
                if (w < 0 || w > 0x10FFFF || (w >= 0xD800 && w <= 0xDFFF)) {
                    fast = false;
                    break;
                }
                o = utf8_put(o, static_cast<char32_t>(w));
            } else {
                int e = w < 0 ? -1 : s.table->encode(static_cast<char32_t>(w));
                if (e < 0) {
                    fast = false;
                    break;
                }
                *o++ = static_cast<char>(e);
            }
        }
        if (fast) {
            out.resize(static_cast<size_t>(o - out.data()));
            return;
        }
    }
    out = qz::basic::wide_to_cp(s.cp, src, len);
}

}  // namespace qz::strconv
