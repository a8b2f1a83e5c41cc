#pragma once

#include "model/Site.h"

#include <QString>

#include <optional>

namespace tw {

// What a failed transfer or connection test means, in one sentence a person
// understands ("The server refused the user name or password."), read from
// curl's text: its error line "curl: (N) ...", the FTP server's replies in a
// trace ("< 530 ...") and the words around them. curl's own text stays as the
// details. A text nothing here recognises keeps its first meaningful line as
// the sentence.
class FailureExplanation {
public:
    // What the sentence may name when curl's text does not: the site's
    // server, port and remote folder.
    struct Context {
        QString host;
        QString port;
        QString remotePath;

        // The site's (absent fields empty).
        static Context of(const Site& site);
    };

    static FailureExplanation explain(const QString& text, const Context& context);
    static FailureExplanation explain(const QString& text) { return explain(text, Context()); }

    // The sentence for people.
    QString summary() const { return m_summary; }
    // curl's text, trimmed; empty when it says no more than the sentence.
    QString details() const { return m_details; }
    // curl's error number, when its text has an error line.
    std::optional<int> curlCode() const { return m_curlCode; }
    // The FTP server's last reply code of 400 or more, when the text holds one.
    std::optional<int> serverReply() const { return m_serverReply; }
    // Whether the sentence was written here (false: it is curl's own line).
    bool isRecognised() const { return m_recognised; }

    // The longest sentence taken over from a text that is not recognised.
    static constexpr qsizetype maximumSummaryLength = 240;

private:
    QString m_summary;
    QString m_details;
    std::optional<int> m_curlCode;
    std::optional<int> m_serverReply;
    bool m_recognised = false;
};

} // namespace tw
