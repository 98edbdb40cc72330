#include "ui/aboutform.h"

#include "service/orvana.h"

AboutForm::AboutForm(Orvana *client, QWidget *parent) : QDialog(parent)
{
    Q_UNUSED(client)
}

AboutForm::~AboutForm() = default;

void AboutForm::update() {}
