#pragma once

#include "transfer/Transporter.h"
#include "transfer/TransporterDelegate.h"

#include <QList>
#include <QString>
#include <QStringList>

namespace tw::test {

// Writes down every message a transporter sends, in order.
class RecordingDelegate : public TransporterDelegate {
public:
    struct Message {
        QString kind; // "percent", "complete", "all", "allWithErrors", "fail"
        TransporterFilePtr file;
        QString text; // the error or the tag
        double percent = -1;
    };

    QList<Message> messages;

    void didCompletePercent(const TransporterFilePtr& file, double percent) override {
        messages.append({QStringLiteral("percent"), file, QString(), percent});
    }
    void didComplete(const TransporterFilePtr& file) override { add(QStringLiteral("complete"), file); }
    void didCompleteAllRequests(const QString& tag) override { add(QStringLiteral("all"), nullptr, tag); }
    void didCompleteAllWithErrors(const QString& tag) override {
        add(QStringLiteral("allWithErrors"), nullptr, tag);
    }
    void didFail(const TransporterFilePtr& file, const QString& error) override {
        add(QStringLiteral("fail"), file, error);
    }

    QStringList kinds() const {
        QStringList list;
        for (const Message& message : messages)
            list.append(message.kind);
        return list;
    }
    int count(const QString& kind) const { return int(kinds().count(kind)); }
    QList<Message> of(const QString& kind) const {
        QList<Message> list;
        for (const Message& message : messages) {
            if (message.kind == kind)
                list.append(message);
        }
        return list;
    }
    // Whether the run has ended with one of the two completion messages.
    bool ended() const { return count(QStringLiteral("all")) + count(QStringLiteral("allWithErrors")) > 0; }

private:
    void add(const QString& kind, const TransporterFilePtr& file, const QString& text = QString()) {
        messages.append({kind, file, text, -1});
    }
};

} // namespace tw::test
