#pragma once

#include <QString>

#include <functional>
#include <vector>

class Converter;

struct Notification
{
    QString name;
    Converter *object = nullptr;
};

// A process-wide publish-subscribe hub. A post delivers synchronously, on the
// posting thread, to every observer of the name before it returns.
class NotificationCenter
{
public:
    using Handler = std::function<void(const Notification &)>;

    static NotificationCenter &defaultCenter();

    void addObserver(const void *observer, const QString &name, Handler handler);
    void removeObserver(const void *observer, const QString &name);
    void removeObserver(const void *observer);
    void post(const QString &name, Converter *object);

    int observerCount(const QString &name) const;
    bool isObserving(const void *observer, const QString &name) const;

private:
    struct Entry
    {
        const void *observer;
        QString name;
        Handler handler;
        quint64 id;
    };
    std::vector<Entry> m_entries;
    quint64 m_nextId = 1;
};
