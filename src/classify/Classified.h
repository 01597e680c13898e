// Classified: an activity with its resolved category, project, manual flag and
// note. The unit every view, total, report and agent tool works on.
//
// The category and project are the catalogue's and project store's loaded
// values, shared and immutable: a year of items holds a handful of them, not a
// copy each. ClassifiedList hands out runs of items (the workspace's cached
// days) the same way, so reading a cached month copies no item.
#pragma once

#include "billing/Project.h"
#include "classify/Category.h"
#include "storage/Activity.h"
#include "support/SharedText.h"

#include <cstddef>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace ombrelo {

struct Classified {
    Activity activity;
    std::shared_ptr<const Category> category;
    std::shared_ptr<const Project> project;
    bool manual = false;  // the project was chosen by hand
    SharedText note;
};

// Classified items in order, held as shared immutable runs. Copying a list
// shares its runs; no operation copies an item.
class ClassifiedList {
public:
    using Run = std::shared_ptr<const std::vector<Classified>>;

    class Iterator {
    public:
        using iterator_category = std::forward_iterator_tag;
        using value_type = Classified;
        using difference_type = std::ptrdiff_t;
        using pointer = const Classified*;
        using reference = const Classified&;

        Iterator() = default;
        reference operator*() const { return (*(*runs_)[run_])[index_]; }
        pointer operator->() const { return &**this; }
        Iterator& operator++() {
            if (++index_ == (*runs_)[run_]->size()) {
                index_ = 0;
                ++run_;
            }
            return *this;
        }
        Iterator operator++(int) {
            Iterator before = *this;
            ++*this;
            return before;
        }
        bool operator==(const Iterator& other) const { return run_ == other.run_ && index_ == other.index_; }

    private:
        friend class ClassifiedList;
        Iterator(const std::vector<Run>* runs, std::size_t run) : runs_(runs), run_(run) {}
        const std::vector<Run>* runs_ = nullptr;
        std::size_t run_ = 0;
        std::size_t index_ = 0;
    };
    using const_iterator = Iterator;
    using value_type = Classified;

    ClassifiedList() = default;
    // One run of `items`.
    ClassifiedList(std::vector<Classified> items) { append(std::move(items)); }  // NOLINT: implicit on purpose
    ClassifiedList(std::initializer_list<Classified> items) : ClassifiedList(std::vector<Classified>(items)) {}

    void append(Run run) {
        if (!run || run->empty()) return;
        size_ += run->size();
        runs_.push_back(std::move(run));
    }
    void append(std::vector<Classified> items) {
        append(std::make_shared<const std::vector<Classified>>(std::move(items)));
    }

    Iterator begin() const { return {&runs_, 0}; }
    Iterator end() const { return {&runs_, runs_.size()}; }
    std::size_t size() const { return size_; }
    bool empty() const { return size_ == 0; }
    const Classified& front() const { return runs_.front()->front(); }
    const Classified& back() const { return runs_.back()->back(); }
    // The item at `index`, found run by run. Throws std::out_of_range past the end.
    const Classified& at(std::size_t index) const {
        for (const Run& run : runs_) {
            if (index < run->size()) return (*run)[index];
            index -= run->size();
        }
        throw std::out_of_range("ClassifiedList::at");
    }
    const Classified& operator[](std::size_t index) const { return at(index); }
    const std::vector<Run>& runs() const { return runs_; }

private:
    std::vector<Run> runs_;  // none empty
    std::size_t size_ = 0;
};

} // namespace ombrelo
