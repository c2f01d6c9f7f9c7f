// The event-log wrapper as the platform library receives it, and the accessible names a desktop
// robot finds widgets by.
#include "accessibleinfo.h"
#include "cvorngenlog.h"
#include "harness.h"

#include <QPushButton>

class TestSupport : public QObject
{
    Q_OBJECT

private:
    EventLog m_log;

    // The last event as "entry level type module|operation|result", level "-" for halvo_log.
    QString last() const
    {
        const QJsonObject e = QJsonDocument::fromJson(m_log.lines().value(m_log.lines().size() - 1)).object();
        return QStringLiteral("%1 %2 %3 %4|%5|%6")
            .arg(e["entry"].toString(), e.contains("level") ? QString::number(e["level"].toInt()) : "-")
            .arg(e["type"].toInt())
            .arg(e["module"].toString(), e["operation"].toString(), e["result"].toString());
    }

private slots:
    void eventsAsTheLibraryGetsThem()
    {
        CVornGenLog *log = CVornGenLog::getInstance();
        // coded form: module, result, level -> what the library got
        // clang-format off
        const QList<std::tuple<int, int, int, const char *>> coded{
            {5, 0, 3, "halvo_log_v2 3 13 virus scan|m|operation successful"},
            {5, 1, 1, "halvo_log_v2 1 13 virus scan|m|operation failed"},
            {18, 2, 3, "halvo_log_v2 3 13 |m|none"},
            {-1, 0, 0, "halvo_log_v2 0 13 |m|operation successful"},
            {0, -7, 3, "halvo_log_v2 3 13 safety check|m|none"},
            {5, 1, -1, "halvo_log - 13 virus scan|m|operation failed"},
            {5, 0, -2, "halvo_log_v2 -2 13 virus scan|m|operation successful"}};
        // clang-format on
        for (const auto &[module, result, level, expected] : coded) {
            QCOMPARE(log->writeLog(module, result, "m", level), 0);
            QCOMPARE(last(), QString(expected));
        }
        QCOMPARE(log->writeLog(5, QStringLiteral("r"), QStringLiteral("op"), 2), 0);
        QCOMPARE(last(), QStringLiteral("halvo_log_v2 2 13 virus scan|op|r"));
        log->writeLog(14, QStringLiteral("r"), QStringLiteral("op"), -1);
        QCOMPARE(last(), QStringLiteral("halvo_log - 13 peripheral control|op|r"));
    }

    void accessibleNames()
    {
        const QString program = QFileInfo(QCoreApplication::arguments().first()).fileName();
        QPushButton button;
        setAccessibleInfo(&button, "m_p&Deal*Btn", "CAuthDialog", "vorn-virus-scan", QString());
        const QString name = program + "_CAuthDialog_QPushButton_m_pDealBtn_vorn-virus-scan";
        // The whole built name becomes the object name of an unnamed widget; the description quotes
        // the object name unchanged.
        QCOMPARE(
            QStringList({button.objectName(), button.accessibleName(), button.accessibleDescription()}),
            (QStringList{name, name, "[m_p&Deal*Btn] is [QPushButton] type in process:[" + program + "]"}));
        // A second call keeps the object name; no doubled "_" without class and application texts.
        setAccessibleInfo(&button, "other", QString(), QString(), "given");
        QCOMPARE(QStringList({button.objectName(), button.accessibleName(), button.accessibleDescription()}),
                 (QStringList{name, program + "_QPushButton_other", "given"}));
        setAccessibleInfo(static_cast<QWidget *>(nullptr), "x", "c", "a", QString()); // ignored
        QVERIFY(buildAccessibleName(&button, "x", "c", "a").startsWith(program + "_c_QPushButton_x_a"));
    }
};

QTEST_MAIN(TestSupport)
#include "tst_support.moc"
