#include "riskboxstandin.h"

#include "dbusjson.h"
#include "riskboxadaptor.h"
#include "riskboxwindow.h"
#include "transcript.h"

#include <QScreen>
#include <QTimer>

#include <utility>

RiskBoxStandIn::RiskBoxStandIn(const Options &options, QObject *parent)
    : QObject(parent), m_adaptor(new RiskBoxAdaptor(this)), m_options(options)
{}

QString RiskBoxStandIn::printable(const QString &text)
{
    QString result;
    for (const QChar c : text) {
        if (c.unicode() < 0x20 || c.unicode() == 0x7f)
            result += QStringLiteral("\\x%1").arg(c.unicode(), 2, 16, QLatin1Char('0'));
        else
            result += c;
    }
    return result;
}

void RiskBoxStandIn::print(const QString &line) const
{
    if (!m_options.quiet)
        printTranscript(line);
}

bool RiskBoxStandIn::intercept(int &value)
{
    m_calls.append(callRecord(message()));
    QString outcome;
    const bool decided = m_faults.apply(*this, value, outcome);
    if (decided)
        print(QStringLiteral("riskbox: %1 -> %2").arg(message().member(), outcome));
    return decided;
}

RiskBox *RiskBoxStandIn::openBox(int id)
{
    const auto found = m_boxes.find(id);
    if (found == m_boxes.end() || found->closed) {
        sendErrorReply(unknownBoxError(), QStringLiteral("no open box with id %1").arg(id));
        return nullptr;
    }
    return &found.value();
}

int RiskBoxStandIn::create(int boxType, const QString &appName, const QString &title)
{
    int forced = 0;
    const bool decided = intercept(forced);
    if (decided && isDelayedReply())
        return 0; // an injected error was sent instead
    if (decided && forced < 0)
        return forced; // a forced negative id: no box is made
    RiskBox box;
    box.id = decided ? forced : m_nextId++;
    box.type = boxType;
    box.appName = appName;
    box.title = title;
    m_boxes.insert(box.id, box);
    return box.id;
}

void RiskBoxStandIn::addContent(int id, const QString &content)
{
    int ignored = 0;
    if (intercept(ignored))
        return;
    if (RiskBox *box = openBox(id))
        box->contents.append(content);
}

void RiskBoxStandIn::addButton(int id, const QString &text, const QString &key)
{
    int ignored = 0;
    if (intercept(ignored))
        return;
    if (RiskBox *box = openBox(id))
        box->buttons.append({text, key});
}

void RiskBoxStandIn::setNotifyFold(int id, int fold)
{
    int ignored = 0;
    if (intercept(ignored))
        return;
    if (RiskBox *box = openBox(id))
        box->fold = fold;
}

void RiskBoxStandIn::setTimeout(int id, int timeout)
{
    int ignored = 0;
    if (intercept(ignored))
        return;
    if (RiskBox *box = openBox(id))
        box->timeout = timeout;
}

void RiskBoxStandIn::show(int id)
{
    int ignored = 0;
    if (intercept(ignored))
        return;
    RiskBox *box = openBox(id);
    if (!box)
        return;
    if (box->shown) {
        sendErrorReply(QStringLiteral("com.tarsel.secriskbox.Error.AlreadyShown"),
                       QStringLiteral("box %1 is already shown").arg(id));
        return;
    }
    box->shown = true;
    present(*box);
    if (box->timeout > 0) {
        QTimer::singleShot(box->timeout * 1000, this, [this, id] {
            if (!m_boxes.value(id).closed)
                answer(id, -1, QStringLiteral("timed out"));
        });
    }
    scheduleAnswer(*box);
}

void RiskBoxStandIn::present(const RiskBox &box)
{
    QStringList buttons;
    for (const auto &button : box.buttons)
        if (button.second != QLatin1String("default"))
            buttons.append(QStringLiteral("[%1]").arg(printable(button.first)));
    print(QStringLiteral("riskbox: box %1 shown: \"%2\" from %3 (type %4%5%6)")
              .arg(box.id)
              .arg(printable(box.title), printable(box.appName))
              .arg(box.type)
              .arg(box.fold ? QStringLiteral(", folded") : QString(),
                   box.timeout > 0 ? QStringLiteral(", timeout %1 s").arg(box.timeout) : QString()));
    for (const QString &line : box.contents)
        print(QStringLiteral("riskbox:   | %1").arg(printable(line)));
    print(QStringLiteral("riskbox:   %1%2")
              .arg(buttons.isEmpty() ? QStringLiteral("(no buttons)") : buttons.join(QLatin1Char(' ')),
                   box.defaultAction().isEmpty()
                       ? QString()
                       : QStringLiteral("  (click: %1)").arg(printable(box.defaultAction()))));

    if (m_options.windows) {
        auto *window = new RiskBoxWindow(box);
        // Stacked above the highest box still open, so boxes never cover each other.
        int bottom = -1;
        for (const QPointer<RiskBoxWindow> &open : std::as_const(m_windows))
            if (open)
                bottom = bottom < 0 ? open->y() - 12 : std::min(bottom, open->y() - 12);
        window->placeAbove(bottom);
        connect(window, &RiskBoxWindow::pressed, this,
                [this, id = box.id](const QString &label) { press(id, label); });
        connect(window, &RiskBoxWindow::bodyClicked, this, [this, id = box.id] {
            const QString command = m_boxes.value(id).defaultAction();
            print(QStringLiteral("riskbox: box %1 body clicked: would run '%2'").arg(id).arg(command));
            answer(id, 0, QStringLiteral("body clicked"));
        });
        m_windows.insert(box.id, window);
        window->show();
        if (!m_options.snapshots.isEmpty())
            // Taken from the display once the window is mapped and painted: what a person sees.
            QTimer::singleShot(500, window, [this, window, id = box.id] {
                const QString file = QStringLiteral("%1/box-%2.png").arg(m_options.snapshots).arg(id);
                if (window->screen()->grabWindow(window->winId()).save(file))
                    print(QStringLiteral("riskbox: box %1 saved as %2").arg(id).arg(file));
            });
    }
}

void RiskBoxStandIn::scheduleAnswer(const RiskBox &box)
{
    if (m_options.answers.isEmpty())
        return;
    const QString label = m_options.answers.first();
    const bool offered = std::any_of(box.buttons.cbegin(), box.buttons.cend(), [&](const auto &button) {
        return button.second != QLatin1String("default") && button.first == label;
    });
    if (!offered)
        return;
    m_options.answers.removeFirst();
    QTimer::singleShot(m_options.answerDelayMs, this, [this, id = box.id, label] {
        if (m_boxes.value(id).closed)
            return;
        if (RiskBoxWindow *window = m_windows.value(id))
            window->press(label); // the same click a person would make
        else
            press(id, label);
    });
}

void RiskBoxStandIn::close(int id)
{
    const auto found = m_boxes.find(id);
    if (found != m_boxes.end())
        found->closed = true;
    if (RiskBoxWindow *window = m_windows.take(id))
        window->close();
}

void RiskBoxStandIn::answer(int id, int state, const QString &how)
{
    close(id);
    print(QStringLiteral("riskbox: box %1 %2 -> signalResult(%1, %3, \"\")").arg(id).arg(how).arg(state));
    emit m_adaptor->signalResult(id, state, QString());
}

bool RiskBoxStandIn::press(int id, const QString &label)
{
    // A copy: answering closes the box, which changes the map.
    const QList<QPair<QString, QString>> buttons = m_boxes.value(id).buttons;
    for (const auto &button : buttons) {
        if (button.second != QLatin1String("default") && button.first == label) {
            answer(id, RiskBox::stateForKey(button.second),
                   QStringLiteral("answered: pressed \"%1\"").arg(printable(label)));
            return true;
        }
    }
    return false;
}
