// The bridge in Simplified Chinese, from the build tree's catalogue: a threat box, the notice that
// names the threat, and the trust-zone failure box.
#include "harness.h"

#include <clocale>
#include <libintl.h>

class TestTranslation : public QObject
{
    Q_OBJECT

private:
    BridgeTest m_test;

private slots:
    void boxesInChinese()
    {
        // Run with LC_ALL=C.UTF-8 LANGUAGE=zh_CN: glibc ignores LANGUAGE in the plain C locale.
        QCOMPARE(qgetenv("LANGUAGE"), QByteArray("zh_CN"));
        setlocale(LC_ALL, "");
        bindtextdomain("vorn-defender", VORN_LOCALE_BUILD_DIR);
        bind_textdomain_codeset("vorn-defender", "UTF-8");
        QVERIFY(m_test.start());

        QCOMPARE(m_test.raise(3, "/home/u/e.com"), 0);
        QCOMPARE(m_test.boxes().last()["title"].toString(), QStringLiteral("安全中心"));
        QCOMPARE(BridgeTest::describe(m_test.boxes().last()),
                 QStringLiteral("0: 发现病毒威胁 / 病毒名称：EICAR / 病毒路径：/home/u/e.com [立即清除=1, "
                                "暂不处理=2, 信任=3] timeout 10"));
        // The translated name line has a proper placeholder: the name reaches the notice. Keys, the
        // command and the log stay untranslated.
        m_test.answer(m_test.lastId(), 1);
        QVERIFY(m_test.settle());
        QCOMPARE(BridgeTest::describe(m_test.boxes().last()),
                 QStringLiteral("1: 病毒已清除，并已备份到隔离区 / 病毒名称：EICAR，点击查看详情 "
                                "[vorn-defender --virus-protect=default]"));
        QVERIFY(m_test.events().contains("Dealing with threats|CAuthDialog: Click deal right now|3"));
        m_test.bridge->slot_sysPop("/q/old.exe");
        QVERIFY(BridgeTest::describe(m_test.boxes().last())
                    .endsWith("[vorn-defender --virus-protect=default, 信任=] fold 1"));

        m_test.fault("d:add_trustFile=1");
        ModalCloser closer;
        QCOMPARE(m_test.bridge->addTrustFiles({"/t/x"}), -1);
        QCOMPARE(closer.seen.value(0).mid(3, 3),
                 (QStringList{"添加到信任区失败", QString::number(QMessageBox::Critical),
                              "确认/" + QString::number(QMessageBox::YesRole)}));
    }
};

QTEST_MAIN(TestTranslation)
#include "tst_translation.moc"
