#include "widgets/clickablelabel.h"

#include "widgets/activation.h"

bool ClickableLabel::event(QEvent *event)
{
    if (!isEnabled() || !isActivation(event))
        return QLabel::event(event);
    emit clicked();
    return true;
}
