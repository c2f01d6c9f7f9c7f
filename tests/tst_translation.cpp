// The bridge in Simplified Chinese, from the build tree's catalogue: a threat box, a notice that
// names the threat, and the trust-zone failure box.
#include "bridgetest.h"
#include "modalcloser.h"

#include <clocale>
#include <libintl.h>

class TestTranslation : public QObject
{
    Q_OBJECT

private:
    BridgeTest m_test;

private slots:
    void initTestCase()
    {
        // Run with LC_ALL=C.UTF-8 LANGUAGE=zh_CN: glibc ignores LANGUAGE in the plain C locale.
        QCOMPARE(qgetenv("LANGUAGE"), QByteArray("zh_CN"));
        setlocale(LC_ALL, "");
        bindtextdomain("vorn-defender", VORN_LOCALE_BUILD_DIR);
        bind_textdomain_codeset("vorn-defender", "UTF-8");
        QVERIFY(m_test.start());
    }

    void boxesInChinese()
    {
        QCOMPARE(m_test.bridge->get_signalResult(SVirusInfo{"EICAR", "", "/home/u/e.com", false}), 0);
        QJsonObject box = m_test.lastBox();
        QCOMPARE(box.value("title").toString(), QStringLiteral("安全中心"));
        QCOMPARE(BridgeTest::contents(box),
                 (QStringList{"发现病毒威胁", "病毒名称：EICAR", "病毒路径：/home/u/e.com"}));
        QCOMPARE(BridgeTest::buttons(box), (QStringList{"立即清除", "1", "暂不处理", "2", "信任", "3"}));

        // The translated name line has a proper placeholder: the name reaches the notice.
        m_test.answer(box.value("id").toInt(), 1);
        QVERIFY(m_test.settle());
        box = m_test.lastBox();
        QCOMPARE(BridgeTest::contents(box),
                 (QStringList{"病毒已清除，并已备份到隔离区", "病毒名称：EICAR，点击查看详情"}));
        // Keys, the command and the log stay untranslated.
        QCOMPARE(BridgeTest::buttons(box), (QStringList{"vorn-defender --virus-protect", "default"}));
        QVERIFY(m_test.events().contains("Dealing with threats|CAuthDialog: Click deal right now|3"));

        m_test.bridge->slot_sysPop(QStringLiteral("/q/old.exe"));
        QCOMPARE(BridgeTest::buttons(m_test.lastBox()),
                 (QStringList{"vorn-defender --virus-protect", "default", "信任", ""}));
    }

    void failureBoxInChinese()
    {
        m_test.peers.daemon.control("Force", {"add_trustFile", 1});
        ModalCloser closer;
        QCOMPARE(m_test.bridge->addTrustFiles({"/t/x"}), -1);
        QCOMPARE(closer.seen.size(), 1);
        QCOMPARE(closer.seen.first().text, QStringLiteral("添加到信任区失败"));
        QCOMPARE(closer.seen.first().buttons, QStringList{"确认"});
    }
};

QTEST_MAIN(TestTranslation)
#include "tst_translation.moc"
