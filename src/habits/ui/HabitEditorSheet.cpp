#include "HabitEditorSheet.h"

#include "Blanks.h"
#include "EmojiCoding.h"
#include "Habit.h"
#include "HabitColor.h"
#include "HabitsService.h"
#include "LimitedSpinBox.h"
#include "ModelContext.h"
#include "Theme.h"

#include <QGridLayout>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPainter>
#include <QPushButton>
#include <QScrollArea>
#include <QTextBoundaryFinder>
#include <QToolButton>
#include <QVBoxLayout>

namespace {
QLabel* caption(const QString& text, QWidget* parent)
{
    auto* label = new QLabel(text, parent);
    label->setFont(Theme::font(Theme::Font::Caption));
    Theme::makeSecondary(label);
    return label;
}

QIcon swatch(const QString& hex, bool selected, const QColor& ring)
{
    QPixmap pixmap(24 * 2, 24 * 2);
    pixmap.setDevicePixelRatio(2);
    pixmap.fill(Qt::transparent);
    QPainter p(&pixmap);
    p.setRenderHint(QPainter::Antialiasing);
    p.setBrush(HabitColor::orFallback(hex, Qt::gray));
    p.setPen(selected ? QPen(ring, 2) : Qt::NoPen);
    p.drawEllipse(QRectF(1, 1, 22, 22));
    return QIcon(pixmap);
}

} // namespace

const QStringList& HabitEditorSheet::colorPalette()
{
    static const QStringList palette{QStringLiteral("#3B82F6"), QStringLiteral("#10B981"),
                                     QStringLiteral("#F59E0B"), QStringLiteral("#EF4444"),
                                     QStringLiteral("#8B5CF6"), QStringLiteral("#EC4899"),
                                     QStringLiteral("#14B8A6"), QStringLiteral("#F97316")};
    return palette;
}

const QStringList& HabitEditorSheet::quickIconPalette()
{
    // clang-format off
    static const QStringList palette = QStringLiteral(
        "💧 🥦 🍎 🥗 💊 🩺 🪥 🧴 🛁 🧘 "
        "🧖 🏃 🚶 🚴 🏊 🏋️ ⛹️ 🤸 🧗 💪 "
        "🧠 📚 📖 ✍️ 📝 🎓 💡 🔬 🧮 🗣️ "
        "⏰ ⏱️ 📅 🌅 ☀️ 🌙 🛏️ 💤 🌱 🌳 "
        "🎨 🎸 🎹 🎤 📷 🎬 🎮 🧩 ♟️ 📺 "
        "💼 💻 📊 📈 ✅ 🎯 🚀 🔧 🛠️ 📌 "
        "🚭 🍷 🥤 🍔 🍩 📱 💸 💰 🪙 🛒 "
        "❤️ 🔥 ⭐ 🌟 ✨ 🌈 🎉 🙏 🧎 🕯️").split(u' ');
    // clang-format on
    return palette;
}

QString HabitEditorSheet::firstCharacter(const QString& text)
{
    if (text.isEmpty())
        return text;
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    const qsizetype end = finder.toNextBoundary();
    return end <= 0 ? text : text.left(end);
}

HabitEditorSheet::HabitEditorSheet(HabitsService& habits, ModelContext& context, Habit* existing,
                                   QWidget* parent)
    : QWidget(parent)
    , m_habits(habits)
    , m_context(context)
    , m_existing(existing)
    , m_editing(existing != nullptr)
{
    setObjectName(QStringLiteral("habitEditor"));
    auto* outer = new QVBoxLayout(this);
    outer->setContentsMargins(20, 20, 20, 20);
    outer->setSpacing(14);
    auto* title =
        new QLabel(existing ? QStringLiteral("Edit habit") : QStringLiteral("New habit"), this);
    title->setFont(Theme::font(Theme::Font::Headline, QFont::DemiBold));
    outer->addWidget(title);

    auto* sections = new QHBoxLayout;
    sections->setSpacing(20);
    sections->addLayout(buildIconSection());
    sections->addLayout(buildDetailsSection(), 1);
    outer->addLayout(sections, 1);
    outer->addLayout(buildButtons());

    connect(m_iconField, &QLineEdit::textChanged, this, &HabitEditorSheet::iconTyped);
    connect(m_name, &QLineEdit::textChanged, this, &HabitEditorSheet::updateSaveEnabled);

    if (existing) {
        m_name->setText(existing->name());
        m_colorHex = existing->colorHex();
        // As stored, even beyond what can be typed here: saving a rename must not
        // rewrite a target set elsewhere.
        m_goal->setLoadedValue(existing->maxValue());
        setIcon(EmojiCoding::decode(existing->icon()));
    } else {
        setIcon(m_icon);
    }
    setColor(m_colorHex);
    updateSaveEnabled();
    m_name->setFocus();
}

QLayout* HabitEditorSheet::buildIconSection()
{
    auto* column = new QVBoxLayout;
    column->setSpacing(6);
    column->addWidget(caption(QStringLiteral("Icon"), this));
    m_iconField = new QLineEdit(this);
    m_iconField->setObjectName(QStringLiteral("iconField"));
    m_iconField->setAccessibleName(QStringLiteral("Icon"));
    m_iconField->setFixedWidth(56);
    m_iconField->setFont(Theme::font(Theme::Font::Title3));
    column->addWidget(m_iconField);
    auto* hint = new QLabel(QStringLiteral("Type, paste any emoji, or pick below."), this);
    hint->setWordWrap(true);
    Theme::makeSecondary(hint);
    column->addWidget(hint);
    auto* scroll = new QScrollArea(this);
    scroll->setObjectName(QStringLiteral("iconGrid"));
    scroll->setFixedSize(220, 200);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOn);
    auto* grid = new QWidget(scroll);
    auto* gridLayout = new QGridLayout(grid);
    gridLayout->setContentsMargins(0, 2, 0, 2);
    gridLayout->setSpacing(6);
    const QStringList& icons = quickIconPalette();
    for (int i = 0; i < icons.size(); ++i) {
        auto* button = new QToolButton(grid);
        button->setObjectName(QStringLiteral("iconChoice"));
        button->setText(icons[i]);
        button->setAccessibleName(icons[i]);
        button->setFixedSize(28, 28);
        button->setAutoRaise(true);
        button->setFont(Theme::font(Theme::Font::Title3));
        connect(button, &QToolButton::clicked, this, [this, icon = icons[i]] { setIcon(icon); });
        gridLayout->addWidget(button, i / 6, i % 6);
        m_iconButtons << button;
    }
    scroll->setWidget(grid);
    column->addWidget(scroll);
    column->addStretch();
    return column;
}

QLayout* HabitEditorSheet::buildDetailsSection()
{
    auto* column = new QVBoxLayout;
    column->setSpacing(6);
    column->addWidget(caption(QStringLiteral("Color"), this));
    auto* colors = new QGridLayout;
    colors->setSpacing(6);
    for (int i = 0; i < colorPalette().size(); ++i) {
        auto* button = new QToolButton(this);
        button->setObjectName(QStringLiteral("colorChoice"));
        button->setAccessibleName(colorPalette()[i]);
        button->setAutoRaise(true);
        button->setFixedSize(24, 24);
        button->setIconSize(QSize(24, 24));
        connect(button, &QToolButton::clicked, this,
                [this, hex = colorPalette()[i]] { setColor(hex); });
        colors->addWidget(button, i / 4, i % 4);
        m_colorButtons << button;
    }
    column->addLayout(colors);
    column->addSpacing(10);
    column->addWidget(caption(QStringLiteral("Name"), this));
    m_name = new QLineEdit(this);
    m_name->setObjectName(QStringLiteral("nameField"));
    m_name->setAccessibleName(QStringLiteral("Name"));
    m_name->setPlaceholderText(QStringLiteral("e.g. Drink water"));
    column->addWidget(m_name);
    column->addSpacing(10);
    column->addWidget(caption(QStringLiteral("Goal"), this));
    m_goal = new LimitedSpinBox(MinGoal, MaxGoal, this);
    m_goal->setObjectName(QStringLiteral("goalStepper"));
    m_goal->setAccessibleName(QStringLiteral("Goal"));
    m_goal->setSuffix(QStringLiteral(" per day"));
    m_goal->setValue(8);
    column->addWidget(m_goal);
    column->addStretch();
    return column;
}

QLayout* HabitEditorSheet::buildButtons()
{
    auto* buttons = new QHBoxLayout;
    if (m_editing) {
        auto* remove = new QPushButton(QStringLiteral("Delete"), this);
        remove->setObjectName(QStringLiteral("deleteButton"));
        remove->setAccessibleName(QStringLiteral("Delete"));
        connect(remove, &QPushButton::clicked, this, &HabitEditorSheet::deleteExisting);
        buttons->addWidget(remove);
        m_gone = new QLabel(QStringLiteral("This habit was deleted elsewhere."), this);
        m_gone->setObjectName(QStringLiteral("habitGone"));
        Theme::tint(m_gone, Theme::destructive());
        m_gone->hide();
        buttons->addWidget(m_gone);
        // Deleted in another editor or by a pull: nothing is left to save or delete.
        connect(m_existing.data(), &QObject::destroyed, this, [this, remove] {
            remove->setEnabled(false);
            m_gone->show();
            m_gone->setAccessibleName(m_gone->text());
            updateSaveEnabled();
        });
    }
    buttons->addStretch();
    auto* cancel = new QPushButton(QStringLiteral("Cancel"), this);
    cancel->setObjectName(QStringLiteral("cancelButton"));
    cancel->setAccessibleName(QStringLiteral("Cancel"));
    connect(cancel, &QPushButton::clicked, this, &HabitEditorSheet::dismissed);
    m_save = new QPushButton(m_editing ? QStringLiteral("Save") : QStringLiteral("Create"), this);
    m_save->setObjectName(QStringLiteral("saveButton"));
    m_save->setAccessibleName(m_save->text());
    m_save->setDefault(true);
    connect(m_save, &QPushButton::clicked, this, &HabitEditorSheet::commit);
    buttons->addWidget(cancel);
    buttons->addWidget(m_save);
    return buttons;
}

void HabitEditorSheet::iconTyped(const QString& text)
{
    const QString first = firstCharacter(text);
    if (first != text) {
        m_iconField->setText(first); // re-enters with the cut text
        return;
    }
    m_icon = text;
    const QColor accent = Theme::accent();
    const QString chosen =
        QStringLiteral("background: %1; border-radius: 4px;")
            .arg(QColor(accent.red(), accent.green(), accent.blue(), 51).name(QColor::HexArgb));
    for (QToolButton* b : std::as_const(m_iconButtons)) {
        const bool on = b->text() == m_icon;
        b->setStyleSheet(on ? chosen : QString());
        b->setChecked(on);
    }
    updateSaveEnabled();
}

void HabitEditorSheet::keyPressEvent(QKeyEvent* event)
{
    // Escape is the cancel action, Return the default one (when allowed).
    if (event->key() == Qt::Key_Escape) {
        emit dismissed();
        return;
    }
    if (event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter) {
        if (m_save->isEnabled())
            commit();
        return;
    }
    QWidget::keyPressEvent(event);
}

void HabitEditorSheet::setIcon(const QString& icon)
{
    if (m_iconField->text() == icon)
        emit m_iconField->textChanged(icon);
    else
        m_iconField->setText(icon);
}

void HabitEditorSheet::setColor(const QString& hex)
{
    m_colorHex = hex;
    const QColor ring = palette().color(QPalette::WindowText);
    for (QToolButton* b : std::as_const(m_colorButtons))
        b->setIcon(swatch(b->accessibleName(), b->accessibleName() == hex, ring));
}

qint64 HabitEditorSheet::maxValue() const
{
    return m_goal->currentValue();
}

QString HabitEditorSheet::trimmedName() const
{
    return Blanks::trimmed(m_name->text());
}

void HabitEditorSheet::updateSaveEnabled()
{
    const bool gone = m_editing && !m_existing;
    m_save->setEnabled(!gone && !trimmedName().isEmpty() && !m_icon.isEmpty());
}

void HabitEditorSheet::commit()
{
    m_goal->interpretText();
    const QString name = trimmedName();
    if (name.isEmpty())
        return;
    if (m_editing && !m_existing)
        return; // deleted meanwhile: saving must not bring it back as a new habit
    const QString icon = m_icon.isEmpty() ? QStringLiteral("💧") : m_icon;
    ModelContext& context = m_context;
    if (m_existing)
        m_habits.updateHabit(m_existing, icon, name, m_colorHex, maxValue(), context);
    else
        m_habits.createHabit(icon, name, m_colorHex, maxValue(), context);
    emit dismissed();
}

void HabitEditorSheet::deleteExisting()
{
    if (m_existing)
        m_habits.deleteHabit(m_existing, m_context);
    emit dismissed();
}
