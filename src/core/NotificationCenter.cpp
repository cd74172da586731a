#include "core/NotificationCenter.h"

#include <algorithm>

NotificationCenter &NotificationCenter::defaultCenter()
{
    static NotificationCenter center;
    return center;
}

void NotificationCenter::addObserver(const void *observer, const QString &name, Handler handler)
{
    m_entries.push_back({observer, name, std::move(handler), m_nextId++});
}

void NotificationCenter::removeObserver(const void *observer, const QString &name)
{
    m_entries.erase(std::remove_if(m_entries.begin(), m_entries.end(),
                                   [&](const Entry &e) { return e.observer == observer && e.name == name; }),
                    m_entries.end());
}

void NotificationCenter::removeObserver(const void *observer)
{
    m_entries.erase(
        std::remove_if(m_entries.begin(), m_entries.end(), [&](const Entry &e) { return e.observer == observer; }),
        m_entries.end());
}

void NotificationCenter::post(const QString &name, Converter *object)
{
    // Observers may come and go while a handler runs (a handler can run a modal
    // alert, or a nested conversion); deliver to those registered at the post
    // and still registered when their turn comes.
    std::vector<quint64> ids;
    for (const Entry &e : m_entries)
        if (e.name == name)
            ids.push_back(e.id);
    const Notification notification{name, object};
    for (quint64 id : ids) {
        auto it = std::find_if(m_entries.begin(), m_entries.end(), [id](const Entry &e) { return e.id == id; });
        if (it == m_entries.end())
            continue;
        Handler handler = it->handler; // the entry may be erased while the handler runs
        handler(notification);
    }
}

int NotificationCenter::observerCount(const QString &name) const
{
    return int(std::count_if(m_entries.begin(), m_entries.end(), [&](const Entry &e) { return e.name == name; }));
}

bool NotificationCenter::isObserving(const void *observer, const QString &name) const
{
    return std::any_of(m_entries.begin(), m_entries.end(),
                       [&](const Entry &e) { return e.observer == observer && e.name == name; });
}
