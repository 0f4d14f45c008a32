#include "guess_offer.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>

namespace clarovi::app {

namespace {

QPushButton* offerButton(const QString& text, const char* name, QWidget* parent) {
    auto* button = new QPushButton(text, parent);
    button->setObjectName(QLatin1String(name));
    return button;
}

} // namespace

GuessOffer::GuessOffer(QWidget* parent) : QWidget(parent), m_text(new QLabel(this)) {
    m_text->setObjectName(QStringLiteral("guessLabel"));
    auto* tryButton = offerButton(tr("Try it"), "tryGuessBtn", this);
    auto* searchButton = offerButton(tr("Search around"), "searchGuessBtn", this);
    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(0, 0, 0, 0);
    row->addWidget(m_text);
    row->addWidget(tryButton);
    row->addWidget(searchButton);
    // Either answer takes the offer away.
    for (QPushButton* button : {tryButton, searchButton})
        connect(button, &QPushButton::clicked, this, &QWidget::hide);
    connect(tryButton, &QPushButton::clicked, this, &GuessOffer::tryIt);
    connect(searchButton, &QPushButton::clicked, this, &GuessOffer::searchAround);
    hide();
}

void GuessOffer::offer(const engine::BlurEstimate& guess) {
    m_text->setText(describe(guess) + QLatin1Char(':'));
    show();
}

QString GuessOffer::describe(const engine::BlurEstimate& guess) {
    const engine::BlurOnPhoto& blur = guess.blur;
    const QString what = blur.kind == engine::BlurKind::Motion
                             ? tr("Maybe motion, length %1 at %2°")
                                   .arg(blur.length, 0, 'f', 1)
                                   .arg(blur.angle, 0, 'f', 1)
                             : tr("Maybe out of focus, diameter %1").arg(blur.length, 0, 'f', 1);
    return what + tr(" (confidence %1)").arg(guess.confidence, 0, 'f', 2);
}

} // namespace clarovi::app
