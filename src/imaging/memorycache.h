#pragma once
// A thread-safe least-recently-used cache with a count limit and an optional total cost limit.
// QCache is not thread-safe; pipeline workers insert while the GUI thread reads.
#include <QHash>
#include <QMutex>
#include <list>
#include <optional>

template<typename Key, typename Value>
class MemoryCache
{
public:
    MemoryCache(qsizetype countLimit, qint64 costLimit = 0) : _countLimit(countLimit), _costLimit(costLimit) {}

    std::optional<Value> get(const Key &key)
    {
        QMutexLocker locker(&_lock);
        const auto it = _index.find(key);
        if (it == _index.end())
            return std::nullopt;
        _order.splice(_order.begin(), _order, *it);   // most recently used first
        return (*it)->value;
    }
    bool contains(const Key &key) const
    {
        QMutexLocker locker(&_lock);
        return _index.contains(key);
    }
    void insert(const Key &key, const Value &value, qint64 cost = 0)
    {
        QMutexLocker locker(&_lock);
        if (const auto it = _index.find(key); it != _index.end()) {
            _cost -= (*it)->cost;
            _order.erase(*it);
            _index.erase(it);
        }
        _order.push_front({key, value, cost});
        _index.insert(key, _order.begin());
        _cost += cost;
        while (!_order.empty()
               && (qsizetype(_order.size()) > _countLimit || (_costLimit > 0 && _cost > _costLimit && _order.size() > 1))) {
            _cost -= _order.back().cost;
            _index.remove(_order.back().key);
            _order.pop_back();
        }
    }
    void remove(const Key &key)
    {
        QMutexLocker locker(&_lock);
        if (const auto it = _index.find(key); it != _index.end()) {
            _cost -= (*it)->cost;
            _order.erase(*it);
            _index.erase(it);
        }
    }
    void clear()
    {
        QMutexLocker locker(&_lock);
        _order.clear();
        _index.clear();
        _cost = 0;
    }
    qsizetype count() const
    {
        QMutexLocker locker(&_lock);
        return qsizetype(_order.size());
    }
    qint64 totalCost() const
    {
        QMutexLocker locker(&_lock);
        return _cost;
    }

private:
    struct Entry {
        Key key;
        Value value;
        qint64 cost;
    };
    mutable QMutex _lock;
    std::list<Entry> _order;                                        // guarded by _lock
    QHash<Key, typename std::list<Entry>::iterator> _index;         // guarded by _lock
    qint64 _cost = 0;                                               // guarded by _lock
    const qsizetype _countLimit;
    const qint64 _costLimit;
};
