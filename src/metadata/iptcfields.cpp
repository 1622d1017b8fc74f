#include "iptcfields.h"

namespace IptcFields {

const char *jsonName(IptcField f)
{
    switch (f) {
    case IptcField::creator: return "creator";
    case IptcField::creatorJobtitle: return "creatorJobtitle";
    case IptcField::creditLine: return "creditLine";
    case IptcField::source: return "source";
    case IptcField::copyrightNotice: return "copyrightNotice";
    case IptcField::usageTerms: return "usageTerms";
    case IptcField::headline: return "headline";
    case IptcField::description: return "description";
    case IptcField::event: return "event";
    case IptcField::city: return "city";
    case IptcField::provinceState: return "provinceState";
    case IptcField::country: return "country";
    case IptcField::countryCode: return "countryCode";
    case IptcField::instructions: return "instructions";
    case IptcField::contactEmail: return "contactEmail";
    case IptcField::contactPhone: return "contactPhone";
    case IptcField::contactUrl: return "contactUrl";
    }
    return "";
}

QString label(IptcField f)
{
    switch (f) {
    case IptcField::creator: return QStringLiteral("Autor");
    case IptcField::creatorJobtitle: return QStringLiteral("Cargo del autor");
    case IptcField::creditLine: return QStringLiteral("Crédito");
    case IptcField::source: return QStringLiteral("Fuente");
    case IptcField::copyrightNotice: return QStringLiteral("Copyright");
    case IptcField::usageTerms: return QStringLiteral("Condiciones de uso");
    case IptcField::headline: return QStringLiteral("Titular");
    case IptcField::description: return QStringLiteral("Descripción");
    case IptcField::event: return QStringLiteral("Evento");
    case IptcField::city: return QStringLiteral("Ciudad");
    case IptcField::provinceState: return QStringLiteral("Región");
    case IptcField::country: return QStringLiteral("País");
    case IptcField::countryCode: return QStringLiteral("Código de país");
    case IptcField::instructions: return QStringLiteral("Instrucciones");
    case IptcField::contactEmail: return QStringLiteral("Contacto: email");
    case IptcField::contactPhone: return QStringLiteral("Contacto: teléfono");
    case IptcField::contactUrl: return QStringLiteral("Contacto: web");
    }
    return {};
}

bool multiline(IptcField f)
{
    return f == IptcField::description || f == IptcField::usageTerms || f == IptcField::instructions;
}

const std::array<IptcField, kIptcFieldCount> &all()
{
    static const std::array<IptcField, kIptcFieldCount> fields = [] {
        std::array<IptcField, kIptcFieldCount> a{};
        for (int i = 0; i < kIptcFieldCount; ++i)
            a[size_t(i)] = IptcField(i);
        return a;
    }();
    return fields;
}

QString keywordsLabel() { return QStringLiteral("Palabras clave"); }

} // namespace IptcFields

bool IptcValues::isEmpty() const
{
    for (const QString &t : text)
        if (!t.isEmpty())
            return false;
    return keywords.isEmpty();
}
