#include "BatchJob.h"

#include <QMetaObject>

namespace ql {

BatchJob::BatchJob(QString title, int total, QObject* parent)
    : QObject(parent), title_(std::move(title)), total_(total) {}

void BatchJob::postDone(const QString& failure) {
    QMetaObject::invokeMethod(
        this,
        [this, failure] {
            ++done_;
            if (!failure.isEmpty()) failed_.append(failure);
            emit changed();
        },
        Qt::QueuedConnection);
}

void BatchJob::postLog(const QString& line) {
    QMetaObject::invokeMethod(
        this,
        [this, line] {
            log_.append(line);
            emit changed();
        },
        Qt::QueuedConnection);
}

void BatchJob::postFinished() {
    QMetaObject::invokeMethod(
        this,
        [this] {
            finished_ = true;
            emit changed();
            emit finishedChanged();
        },
        Qt::QueuedConnection);
}

}  // namespace ql
