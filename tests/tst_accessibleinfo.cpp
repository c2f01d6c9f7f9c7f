// Object, accessible names and descriptions as accessibility tools and desktop robots see them.
#include "accessibleinfo.h"

#include <QLabel>
#include <QPushButton>
#include <QtTest>

class TestAccessibleInfo : public QObject
{
    Q_OBJECT

private slots:
    void namesAndDescriptions()
    {
        const QString program = QFileInfo(QCoreApplication::arguments().first()).fileName();
        QCOMPARE(program, QStringLiteral("tst_accessibleinfo"));

        QPushButton button;
        setAccessibleInfo(&button, QStringLiteral("m_p&Deal*Btn"), QStringLiteral("CAuthDialog"),
                          QStringLiteral("vorn-virus-scan"), QString());
        const QString name = program + QStringLiteral("_CAuthDialog_QPushButton_m_pDealBtn_vorn-virus-scan");
        QCOMPARE(button.accessibleName(), name);
        // The whole built name, not the bare argument, becomes the object name of an unnamed widget.
        QCOMPARE(button.objectName(), name);
        QCOMPARE(button.accessibleDescription(),
                 QStringLiteral("[m_p&Deal*Btn] is [QPushButton] type in process:[%1]").arg(program));

        // A second call keeps the first object name and sets the same accessible name again.
        setAccessibleInfo(&button, QStringLiteral("other"), QString(), QString(), QStringLiteral("given"));
        QCOMPARE(button.objectName(), name);
        QCOMPARE(button.accessibleName(), program + QStringLiteral("_QPushButton_other"));
        QCOMPARE(button.accessibleDescription(), QStringLiteral("given"));

        // No doubled "_" when the class and application texts are empty; the run-time class counts.
        QLabel label;
        label.setObjectName(QStringLiteral("preset"));
        setAccessibleInfo(&label, QStringLiteral("pTitleName"), QString(), QString(), QString());
        QCOMPARE(label.accessibleName(), program + QStringLiteral("_QLabel_pTitleName"));
        QCOMPARE(label.objectName(), QStringLiteral("preset"));

        // Placeholders in a name are text, not placeholders.
        QCOMPARE(buildAccessibleDescription(&label, QStringLiteral("%2%3")),
                 QStringLiteral("[%2%3] is [QLabel] type in process:[%1]").arg(program));

        QWidget *none = nullptr;
        setAccessibleInfo(none, QStringLiteral("x"), QString(), QString(), QString());
        QVERIFY(buildAccessibleName(none, QStringLiteral("x"), QString(), QString()).isEmpty());
        QVERIFY(buildAccessibleDescription(none, QStringLiteral("x")).isEmpty());
    }
};

QTEST_MAIN(TestAccessibleInfo)
#include "tst_accessibleinfo.moc"
