// The widget tree, menus, actions and stacking of the main window as built at start-up.

#include "app/mainwindow.h"
#include "app/ui_mainwindow.h"

#include <QtTest>
#include <QtWidgets>

namespace {

// One line per named widget, in the order of the object tree (so a parent's widgets bottom to
// top): name, class, parent, geometry, what it shows, and flags: h pointing-hand cursor,
// d disabled, r read-only, > right-aligned. A combo shows its items ('!' before a disabled one);
// a menu its title and entries ('-' a separator, '>' a submenu, [c] checkable, [d] disabled).
QString describe(QObject* o)
{
    auto* w = static_cast<QWidget*>(o);
    const bool hand
        = w->testAttribute(Qt::WA_SetCursor) && w->cursor().shape() == Qt::PointingHandCursor;
    QString text, flags = hand ? "h" : "";
    bool enabled = w->isEnabled();
    if (auto* b = qobject_cast<QAbstractButton*>(o)) text = b->text();
    if (auto* g = qobject_cast<QGroupBox*>(o)) text = g->title();
    if (auto* l = qobject_cast<QLabel*>(o))
        text = l->text(), flags += l->alignment() == (Qt::AlignRight | Qt::AlignVCenter) ? ">" : "";
    if (auto* e = qobject_cast<QLineEdit*>(o))
        text = e->text(), flags += e->isReadOnly() ? "r" : "";
    if (auto* v = qobject_cast<QAbstractItemView*>(o))
        flags += v->editTriggers() == QAbstractItemView::NoEditTriggers && !v->showDropIndicator()
            ? "r"
            : "";
    if (auto* c = qobject_cast<QComboBox*>(o)) {
        auto* model = qobject_cast<QStandardItemModel*>(c->model());
        QStringList items;
        for (int i = 0; i < c->count(); ++i)
            items << (model->item(i)->isEnabled() ? "" : "!") + c->itemText(i);
        text = items.join('|');
    }
    auto* menu = qobject_cast<QMenu*>(o);
    if (menu) enabled = menu->menuAction()->isEnabled();
    if (menu || qobject_cast<QMenuBar*>(o)) {
        QStringList entries;
        for (QAction* a : w->actions()) {
            const QString actionFlags
                = QString(a->isCheckable() ? "c" : "") + (a->isEnabled() ? "" : "d");
            entries << (a->isSeparator() ? QStringLiteral("-")
                            : a->menu()
                            ? '>' + a->menu()->title()
                            : a->text() + (actionFlags.isEmpty() ? "" : '[' + actionFlags + ']'));
        }
        text = (menu ? menu->title() + ": " : QString()) + entries.join('|');
    }
    QString line
        = o->objectName() + ' ' + o->metaObject()->className() + ' ' + o->parent()->objectName();
    // The frames take their size from the main window's layout.
    if (!menu && w->parent() != w->window())
        line += QString::asprintf(" %d,%d %dx%d", w->x(), w->y(), w->width(), w->height());
    if (!text.isEmpty()) line += " \"" + text + '"';
    flags += enabled ? "" : "d";
    return flags.isEmpty() ? line : line + ' ' + flags;
}

} // namespace

class TestWinLayout : public QObject
{
    Q_OBJECT
    QTemporaryDir work; // the working folder, where a fresh Zarnel.ini is written
    std::unique_ptr<MainWindow> window;

private slots:
    void initTestCase()
    {
        QFont font(QStringLiteral("Arial"));
        font.setPixelSize(15);
        QApplication::setFont(font);
        QDir::setCurrent(work.path());
    }
    void init()
    {
        window = std::make_unique<MainWindow>();
        window->initialize();
    }
    void cleanup() { window.reset(); }
    void tree();
    void frame();
};

void TestWinLayout::tree()
{
    QStringList actual;
    for (QObject* o : window->findChildren<QObject*>()) {
        const bool named = !o->objectName().isEmpty() && !o->objectName().startsWith("qt_");
        if (named && o->isWidgetType()) actual << describe(o);
    }
    // The expected tree is a golden file: a table of constants that only a reviewed edit changes.
    QFile golden(QFINDTESTDATA("data/window_tree.txt"));
    QVERIFY(golden.open(QIODevice::ReadOnly | QIODevice::Text));
    const QStringList expected
        = QString::fromUtf8(golden.readAll()).split('\n', Qt::SkipEmptyParts);
    QCOMPARE(actual, expected);
}

void TestWinLayout::frame()
{
    const Ui::MainWindow& ui = *window->ui;
    QVERIFY(window->menuBar() == ui.menubar && window->statusBar() == ui.statusbar
            && window->centralWidget() == ui.centralwidget);
    QCOMPARE(window->windowTitle(), QStringLiteral("Zarnel Archive Manager"));
    QVERIFY(window->acceptDrops()
            && window->locale() == QLocale(QLocale::English, QLocale::UnitedStates));
    // The main window's layout resizes the menu bar to its font; its place and width stay.
    QCOMPARE(ui.menubar->geometry().topLeft(), QPoint(0, 0));
    QCOMPARE(ui.menubar->width(), 870);
    // The support button must win clicks over the stripes it lies on.
    QCOMPARE(ui.centralwidget->childAt(ui.pushButton_KoFi->geometry().center()),
             static_cast<QWidget*>(ui.pushButton_KoFi));
    for (QSize size : {QSize(1000, 700), QSize(400, 300)}) {
        window->resize(size);
        QCOMPARE(window->size(), QSize(870, 500));
    }
    QCOMPARE(window->sizePolicy(), QSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding));
    // Only the family is set on the window; the 15-pixel size comes from the application font.
    QCOMPARE(window->font().family(), QStringLiteral("Arial"));
    QCOMPARE(window->font().pixelSize(), 15);

    // The support button's picture: 179 x 21, not blank (badge and lettering).
    const QImage image(QStringLiteral(":/icon/kofi_179x21.png"));
    QCOMPARE(ui.pushButton_KoFi->icon().availableSizes(), QList<QSize> {QSize(179, 21)});
    QCOMPARE(ui.pushButton_KoFi->iconSize(), image.size());
    QSet<QRgb> colours;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            colours.insert(image.pixel(x, y));
    QVERIFY(colours.size() >= 3);
}

QTEST_MAIN(TestWinLayout)
#include "tst_win_layout.moc"
