#include "uploadtexts.h"

namespace UploadTexts {

QString forResult(int code, const QString &shimText)
{
    switch (code) {
    case 6:
        return QStringLiteral("no se encuentra el servidor (revisa la dirección)");
    case 7:
        return QStringLiteral("el servidor no responde en ese puerto");
    case 9:
    case 78:
        return QStringLiteral("la carpeta no existe (se creará al enviar) o no tienes permiso");
    case 25:
        return QStringLiteral("el servidor no deja subir el archivo (permisos o espacio)");
    case 28:
        return QStringLiteral("la conexión se ha quedado parada demasiado tiempo");
    case 35:
    case 60:
        return QStringLiteral("el certificado del servidor no es válido (caducado, autofirmado o una conexión "
                              "interceptada). Confírmalo con quien gestiona el servidor antes de desactivar "
                              "«Comprobar el certificado»");
    case 64:
        return QStringLiteral("el servidor no admite FTPS (prueba con FTP)");
    case 67:
        return QStringLiteral("usuario o contraseña incorrectos");
    case 90:   // CURLE_SSL_PINNEDPUBKEYNOTMATCH: only a server with a trusted certificate meets it
        return QStringLiteral("el certificado del servidor no es el que confiaste (ha cambiado o la conexión está "
                              "interceptada)");
    default:
        return shimText.isEmpty() ? QStringLiteral("error %1").arg(code) : shimText;
    }
}

bool isRetryable(int code)
{
    switch (code) {
    case 7:    // couldn't connect
    case 8:    // weird server reply
    case 13:   // weird PASV reply
    case 14:   // weird 227 reply
    case 15:   // can't get host (data connection)
    case 18:   // partial file
    case 26:   // read error
    case 28:   // stalled or timed out
    case 52:   // got nothing
    case 55:   // send error
    case 56:   // receive error
        return true;
    default:
        return false;
    }
}

} // namespace UploadTexts
