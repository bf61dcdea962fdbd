// Who watches what happens on the machine, and the lists of what has happened. Any thread.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <vector>

namespace platform {

// An observer's place in a list. Whoever holds it watches; when it is let go, the observer is told
// nothing more, and what it holds is released.
using Observation = std::shared_ptr<const void>;

// Told of each record as it comes up, on the thread on which it does, with no lock held. An
// observer may block, and may let its own place go.
template <class Record>
class Observers {
 public:
  using Observer = std::function<void(const Record&)>;

  // Observers are told in the order in which they came.
  [[nodiscard]] Observation Observe(Observer observer) {
    const auto place = std::make_shared<const Observer>(std::move(observer));
    const std::scoped_lock lock(lock_);
    Places places;
    for (const auto& each : *places_) {
      if (!each.expired()) {
        places.push_back(each);
      }
    }
    places.push_back(place);
    places_ = std::make_shared<const Places>(std::move(places));
    return place;
  }

  // One that is let go meanwhile may still be told this record, on another thread.
  void Tell(const Record& record) {
    std::shared_ptr<const Places> places;
    {
      const std::scoped_lock lock(lock_);
      places = places_;
    }
    for (const auto& place : *places) {
      if (const auto observer = place.lock()) {
        (*observer)(record);
      }
    }
  }

 private:
  using Places = std::vector<std::weak_ptr<const Observer>>;

  std::mutex lock_;  // guards places_

  // Never changed, only replaced: records come up thousands of times as often as observers.
  std::shared_ptr<const Places> places_ = std::make_shared<const Places>();
};

// The same, and keeps the records for whoever asks later. For what comes seldom enough to be kept:
// a life of the service has a few hundred of them.
template <class Record>
class RecordLog : public Observers<Record> {
 public:
  // Keeps the record before it tells the observers, so one that asks for all finds it there. Two
  // threads that add at once may tell in another order than that of the list.
  void Add(const Record& record) {
    {
      const std::scoped_lock lock(lock_);
      records_.push_back(record);
    }
    this->Tell(record);
  }

  // A copy, so that nobody holds the lock while he looks.
  std::vector<Record> All() const {
    const std::scoped_lock lock(lock_);
    return records_;
  }

  // Forgets the records so far; observers stay.
  void Clear() {
    const std::scoped_lock lock(lock_);
    records_.clear();
  }

 private:
  mutable std::mutex lock_;  // guards records_
  std::vector<Record> records_;
};

}  // namespace platform
