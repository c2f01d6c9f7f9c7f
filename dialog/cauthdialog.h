#ifndef CAUTHDIALOG_H
#define CAUTHDIALOG_H

#include "virusrecords.h"

#include <QDialog>
#include <QStringList>

class CVirusDbusMiddle;
class FixButton;
class QAction;
class QTimer;

// Asks what to do with one detected threat: trust the file, leave it for now, or process it at
// once; left alone, it processes the threat after a five-second countdown. Every way out deletes
// the dialog; the outcome goes to the event log and the bridge, never back to whoever showed it.
class CAuthDialog : public QDialog
{
    Q_OBJECT

public:
    CAuthDialog(const SVirusInfo &info, QWidget *parent = nullptr);
    ~CAuthDialog() override;

public slots:
    void onTimeOut();
    void slot_toolBtnChanged(QAction *action);
    void slot_dealClicked();
    void slot_trustClicked();
    void slot_noDealClicked();
    void slot_toolBtnClicked();

protected:
    void closeEvent(QCloseEvent *event) override;

private:
    void buildContent();
    void centre();
    void deal();
    void finish();

    CVirusDbusMiddle *m_pMiddle = nullptr;
    SQuarantineFileInfoList m_dealList;
    QStringList m_trustList;
    FixButton *m_pNoDealBtn = nullptr;
    FixButton *m_pDealBtn = nullptr;
    QTimer *m_pTimer = nullptr;
    int m_nCountdown = 4;
    QString m_virusName;
    QString m_virusPath;
};

#endif // CAUTHDIALOG_H
