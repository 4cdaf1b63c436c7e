// Preferences, cache: how much the downloaded files take on this computer,
// how long they are kept (the setting "storeDownloadedFiles", in days; -1
// keeps them), and clearing them now. The size is measured and the store
// asked on a pool thread; the page follows when they are done.
//
// Main thread only.
#pragma once

#include <QWidget>
#include <cstdint>
#include <functional>

class QComboBox;
class QLabel;
class QPushButton;

namespace vh {

class VHCachePage : public QWidget {
    Q_OBJECT
  public:
    // The choices offered, in days as the setting stores them.
    static constexpr int kKeepChoices[] = {-1, 0, 1, 7, 30};

    explicit VHCachePage(QWidget* parent = nullptr);

    QComboBox* keepBox() const { return keep_; }
    QPushButton* clearButton() const { return clear_; }
    // Bytes of the content cache's files, as last measured (-1 before).
    int64_t measuredBytes() const { return bytes_; }
    // Measures again (also after each change here).
    void measure();
    // The bytes in the cache's "Files" and "Downloads" folders. Any thread.
    static int64_t cacheBytes();
    // The setting; -1 when not set.
    static int keepDays();

  signals:
    void measured();

  protected:
    void changeEvent(QEvent* event) override;

  private:
    void retranslate();
    void keepChosen(int index);
    void clearCache();
    void runThenMeasure(std::function<void()> work);

    QLabel* usage_;
    QLabel* keepLabel_;
    QComboBox* keep_;
    QPushButton* clear_;
    int64_t bytes_ = -1;
    bool busy_ = false;
};

}  // namespace vh
