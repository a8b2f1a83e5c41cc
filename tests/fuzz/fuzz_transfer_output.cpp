// curl's output comes from another program and, through it, from the server:
// whatever bytes arrive, in whatever pieces, the four readers of the transfer
// engine must take them without crashing, and the delegate must only ever
// hear about items of the run.
//
// Input: one byte choosing the reader (single-mode standard error, single-mode
// standard output of a listing or a read, batch upload, batch delete), then
// chunks, each a length byte followed by that many bytes. A batch then ends,
// well or not, by the input's size.
#include "../core/transfer/TransporterProbe.h"
#include "transfer/TransporterFTPConnection.h"
#include "transfer/TransporterOutput.h"

#include <QByteArray>
#include <QList>

#include <cstddef>
#include <cstdint>
#include <memory>

namespace {

class CheckingDelegate : public tw::TransporterDelegate {
public:
    QList<tw::TransporterFilePtr> items;
    void check(const tw::TransporterFilePtr& file) const {
        if (!items.contains(file))
            __builtin_trap();
    }
    void didCompletePercent(const tw::TransporterFilePtr& file, double) override { check(file); }
    void didComplete(const tw::TransporterFilePtr& file) override { check(file); }
    void didCompleteListing(const tw::TransporterFilePtr& file, const QStringList&) override { check(file); }
    void didCompleteReadingFile(const tw::TransporterFilePtr& file, const QString&) override { check(file); }
    void didFail(const tw::TransporterFilePtr& file, const QString& error) override {
        check(file);
        if (error.contains(QLatin1Char('\n')))
            __builtin_trap(); // one line only
    }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0)
        return 0;
    auto site = std::make_shared<tw::Site>();
    site->host = QStringLiteral("srv1");
    site->username = QStringLiteral("bob");
    site->remotePath = QStringLiteral("www");
    tw::Transporter transporter(std::make_shared<tw::TransporterFTPConnection>(site, QStringLiteral("pw")));
    CheckingDelegate delegate;
    transporter.setDelegate(&delegate);

    const int mode = data[0] % 5;
    switch (mode) {
    case 0:
    case 1:
        delegate.items << transporter.uploadFile(QStringLiteral("/l/a"), QStringLiteral("a"));
        break;
    case 2:
        delegate.items << transporter.readFile(QStringLiteral(".tarnwell"));
        delegate.items << transporter.list(QStringLiteral("www/"));
        break;
    case 3:
        for (int i = 0; i < 3; ++i)
            delegate.items << transporter.uploadFile(QStringLiteral("/l/%1").arg(i), QString::number(i));
        break;
    default:
        for (int i = 0; i < 3; ++i)
            delegate.items << transporter.deleteFile(QString::number(i));
        break;
    }
    tw::TransporterProbe::Batch batch;
    if (mode <= 2)
        tw::TransporterProbe::pool(transporter);
    else
        batch = tw::TransporterProbe::batch(transporter, mode == 3);

    size_t at = 1;
    while (at < size) {
        const size_t length = std::min<size_t>(data[at], size - at - 1);
        const QByteArray chunk(reinterpret_cast<const char*>(data + at + 1), static_cast<qsizetype>(length));
        at += length + 1;
        switch (mode) {
        case 0:
        case 1:
            tw::TransporterProbe::errorChunk(transporter, delegate.items.first(), chunk);
            break;
        case 2:
            tw::TransporterProbe::resultChunk(transporter, delegate.items.at(chunk.size() % 2), chunk);
            break;
        default:
            tw::TransporterProbe::batchChunk(transporter, batch, chunk);
            break;
        }
        if (const auto text = tw::TransporterOutput::decode(chunk)) {
            tw::TransporterOutput::cleanErrorText(*text);
            tw::TransporterOutput::singlePercent(*text);
            tw::TransporterOutput::batchPercent(*text);
        }
    }
    if (batch)
        tw::TransporterProbe::batchFinished(transporter, batch, size % 3 == 0 ? 0 : 25, size % 7 == 0);
    return 0;
}
