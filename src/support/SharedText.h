// SharedText: an immutable UTF-8 text, or none, whose copies share one
// allocation. Activities carry their title, site, address, bundle id and
// device this way: a year of history repeats a few thousand distinct texts
// across hundreds of thousands of rows, and a read hands every row with the same
// text the same allocation (TextPool).
//
// It reads like std::optional<std::string> (has_value, *, ->, value_or, reset,
// comparison by content) so code that shows or compares texts need not care.
// Any thread may read a text; copies on several threads are safe.
#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unordered_map>

namespace ombrelo {

class SharedText {
public:
    SharedText() = default;
    SharedText(std::nullopt_t) {}  // NOLINT: reads like an optional
    SharedText(std::string text) : text_(std::make_shared<const std::string>(std::move(text))) {}  // NOLINT
    SharedText(const char* text) : SharedText(std::string(text)) {}                                 // NOLINT
    SharedText(const std::optional<std::string>& text) {                                           // NOLINT
        if (text) text_ = std::make_shared<const std::string>(*text);
    }
    SharedText(std::optional<std::string>&& text) {  // NOLINT
        if (text) text_ = std::make_shared<const std::string>(std::move(*text));
    }

    bool has_value() const { return text_ != nullptr; }
    explicit operator bool() const { return has_value(); }
    const std::string& operator*() const { return *text_; }
    const std::string* operator->() const { return text_.get(); }
    const std::string& value() const {
        if (!text_) throw std::bad_optional_access();
        return *text_;
    }
    std::string value_or(std::string_view fallback) const { return text_ ? *text_ : std::string(fallback); }
    void reset() { text_.reset(); }
    // For the interfaces that take an optional string (a copy of the text).
    operator std::optional<std::string>() const {  // NOLINT
        return text_ ? std::optional<std::string>(*text_) : std::nullopt;
    }
    // Whether both are the same allocation (so equal texts), in O(1); two
    // absent texts are not shared.
    bool sharedWith(const SharedText& other) const { return text_ && text_ == other.text_; }
    // The allocation's address: the same for every copy.
    const void* identity() const { return text_.get(); }

    friend bool operator==(const SharedText& a, const SharedText& b) {
        if (a.text_ == b.text_) return true;
        return a.text_ && b.text_ && *a.text_ == *b.text_;
    }
    friend bool operator==(const SharedText& a, std::nullopt_t) { return !a.text_; }
    friend bool operator==(const SharedText& a, const std::string& b) { return a.text_ && *a.text_ == b; }
    friend bool operator==(const SharedText& a, std::string_view b) { return a.text_ && *a.text_ == b; }
    friend bool operator==(const SharedText& a, const char* b) { return a.text_ && *a.text_ == b; }
    friend bool operator==(const SharedText& a, const std::optional<std::string>& b) {
        return b ? a == *b : !a.text_;
    }

private:
    template <std::size_t Columns>
    friend class TextPool;
    explicit SharedText(std::shared_ptr<const std::string> text) : text_(std::move(text)) {}

    std::shared_ptr<const std::string> text_;
};

// Texts read column by column: equal texts come out as one shared
// allocation. Single-threaded.
template <std::size_t Columns>
class TextPool {
public:
    std::size_t size() const { return texts_.size(); }
    // Forgets every text (those handed out live on with their users).
    void clear() {
        texts_.clear();
        last_ = {};
    }

    SharedText text(std::size_t column, std::optional<std::string_view> text) {
        if (!text) return {};
        // Consecutive rows often repeat a column (the device, the
        // application): compared with the last one, no hashing.
        SharedText& last = last_[column];
        if (last && *last == *text) return last;
        if (auto found = texts_.find(*text); found != texts_.end()) return last = SharedText(found->second);
        auto shared = std::make_shared<const std::string>(*text);
        texts_.emplace(std::string_view(*shared), shared);
        return last = SharedText(std::move(shared));
    }

private:
    // Keys view the shared texts themselves.
    std::unordered_map<std::string_view, std::shared_ptr<const std::string>> texts_;
    std::array<SharedText, Columns> last_;
};

} // namespace ombrelo
