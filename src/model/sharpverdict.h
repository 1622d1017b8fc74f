#pragma once
// The verdict drawn from a shot's sharpness scores, by the user's sensitivity.
#include <QString>
#include <optional>

class Photo;

enum class SharpSensitivity { strict, normal, loose };

SharpSensitivity sharpSensitivityFromString(const QString &s);   // unknown text → normal
QString sharpSensitivityToString(SharpSensitivity s);
// The "sharpSensitivity" setting as stored now.
SharpSensitivity currentSharpSensitivity();

// 0 not measured, 1 blurry, 2 doubtful, 3 sharp.
enum SharpLevel : int { SharpUnmeasured = 0, SharpBlurry = 1, SharpDoubtful = 2, SharpSharp = 3 };

int sharpVerdict(std::optional<double> sharpness, std::optional<double> faceSharpness, SharpSensitivity s);
int sharpVerdict(const Photo &photo, SharpSensitivity s);

// Why a level-1 shot is blurry: "Desenfocada o movida · …" or "Ojos desenfocados · …".
// Empty for any other level.
QString sharpReason(std::optional<double> sharpness, std::optional<double> faceSharpness, SharpSensitivity s);
QString sharpReason(const Photo &photo, SharpSensitivity s);
