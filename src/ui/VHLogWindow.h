// The main log's recent lines (today's file, the last kTailLines), then
// every new line as it is written.
//
// Main thread only. While a window exists it is the log's mirror; lines
// logged on other threads reach it queued.
#pragma once

#include <QWidget>

class QLabel;
class QPlainTextEdit;
class QPushButton;

namespace vh {

class VHLogWindow : public QWidget {
    Q_OBJECT
  public:
    static constexpr int kTailLines = 500;
    static constexpr int kMaxLines = 5000;

    explicit VHLogWindow(QWidget* parent = nullptr);
    ~VHLogWindow() override;

    QPlainTextEdit* text() const { return text_; }

  protected:
    void changeEvent(QEvent* event) override;

  private:
    void retranslate();
    void loadTail();
    void append(const QString& line);

    QLabel* hint_;
    QPlainTextEdit* text_;
    QPushButton* openFolder_;
};

}  // namespace vh
