// One piece of work over many photos, as the progress bar sees it.
#pragma once

#include <QObject>
#include <QString>
#include <QStringList>

#include <atomic>
#include <memory>

namespace ql {

/// A stop request shared between the interface and a worker, read once per photo.
class CancelFlag {
  public:
    void cancel() { set_.store(true, std::memory_order_release); }
    bool isCancelled() const { return set_.load(std::memory_order_acquire); }
    /// For engine calls that can stop inside one photo.
    const std::atomic<bool>* atomic() const { return &set_; }

  private:
    std::atomic<bool> set_{false};
};

/// Lives on the main thread. Workers report through the post… members, which are safe from any
/// thread and reach the job in order, after the worker's preceding reports.
class BatchJob : public QObject {
    Q_OBJECT
  public:
    BatchJob(QString title, int total, QObject* parent = nullptr);

    const QString& title() const { return title_; }
    int total() const { return total_; }
    int done() const { return done_; }
    const QStringList& failed() const { return failed_; }
    bool finished() const { return finished_; }
    const QStringList& log() const { return log_; }
    CancelFlag& cancelFlag() const { return *cancel_; }

    /// One photo is through; `failure` names it when it failed.
    void postDone(const QString& failure = {});
    void postLog(const QString& line);
    void postFinished();

  signals:
    void changed();
    void finishedChanged();

  private:
    QString title_;
    int total_;
    int done_ = 0;
    QStringList failed_;
    bool finished_ = false;
    QStringList log_;
    std::shared_ptr<CancelFlag> cancel_ = std::make_shared<CancelFlag>();
};

}  // namespace ql
