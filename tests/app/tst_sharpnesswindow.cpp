// The window scoring a folder in the background: verdict marks and reasons in the grid, the note
// in the single view, the sharpness filter and the sensitivity setting, and results that are
// still there after a restart without measuring again.
#include "corvanerun.h"
#include "testenv.h"
#include "testscenes.h"
#include "testwindow.h"

#include "analysis/sharpnesscache.h"
#include "model/sharpverdict.h"
#include "app/settingsdialog.h"
#include "app/singleview.h"

#include <QComboBox>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QProgressBar>
#include <QTemporaryDir>

namespace {

struct Session : WindowSession {
    using WindowSession::WindowSession;

    Photo *byName(const QString &name) const
    {
        for (const auto &p : state.photos())
            if (QFileInfo(p->name()).completeBaseName() == name)
                return p.get();
        return nullptr;
    }
    bool allMeasured() const
    {
        for (const auto &p : state.photos())
            if (!p->sharpness())
                return false;
        return !state.photos().isEmpty();
    }
    QVariant cell(const QString &name, int role) const
    {
        const Photo *p = byName(name);
        return p ? model()->index(model()->rowOf(p->id)).data(role) : QVariant();
    }
    QStringList visibleNames() const
    {
        QStringList names;
        for (const auto &p : state.visible())
            names.append(QFileInfo(p->name()).completeBaseName());
        return names;
    }
};

} // namespace

class TestSharpnessWindow : public QObject
{
    Q_OBJECT

    QTemporaryDir _dir;
    QString _folder;

private slots:
    void initTestCase()
    {
        TestEnv::isolate();
        _folder = _dir.filePath("Boda");
        QVERIFY(QDir().mkpath(_folder));
        const QImage sharp = sharpScene(900, 600);
        QVERIFY(sharp.save(_folder + "/a_nitida.jpg", "JPG", 92));
        QVERIFY(boxBlur(sharp, 3, 0).save(_folder + "/b_dudosa.jpg", "JPG", 92));    // a short sweep, ≈ 220: doubtful under "normal"
        QVERIFY(boxBlur(sharp, 3, 3).save(_folder + "/c_movida.jpg", "JPG", 92));    // ≈ 9: blurry under any
        QVERIFY(boxBlur(sharp, 14, 0).save(_folder + "/d_barrida.jpg", "JPG", 92));  // a long horizontal sweep
    }

    void foldersAreScoredInTheBackground()
    {
        Session s(_folder);
        QCOMPARE(s.state.photos().size(), 4);
        auto *text = s.window.findChild<QLabel *>("statusSharpnessText");
        auto *bar = s.window.findChild<QProgressBar *>("statusSharpness");
        QVERIFY(text && bar);
        // The window answers while the measures run: nothing above blocked on them.
        QTRY_VERIFY_WITH_TIMEOUT(s.allMeasured(), 30000);
        QTRY_VERIFY(!text->isVisible());
        QVERIFY(!bar->isVisible());

        QCOMPARE(s.cell("a_nitida", GridModel::SharpRole).toInt(), int(SharpSharp));
        QCOMPARE(s.cell("b_dudosa", GridModel::SharpRole).toInt(), int(SharpDoubtful));
        QCOMPARE(s.cell("c_movida", GridModel::SharpRole).toInt(), int(SharpBlurry));
        QCOMPARE(s.cell("d_barrida", GridModel::SharpRole).toInt(), int(SharpBlurry));
        QVERIFY(s.cell("c_movida", Qt::ToolTipRole).toString().contains("Desenfocada o movida · "));
        QVERIFY(!s.cell("a_nitida", Qt::ToolTipRole).toString().contains("Desenfocada"));

        // The single view says why.
        s.state.setCurrentIndex(int(s.state.visible().indexOf(s.state.photos().at(2))));
        QCOMPARE(s.state.current()->name(), QString("c_movida.jpg"));
        s.state.setViewMode(ViewMode::preview);
        QVERIFY(s.window.singleView()->sharpnessNote().startsWith("Desenfocada o movida · "));
        // The focus point of a shot is where its detail is: anywhere in the sharp picture.
        QVERIFY(s.byName("a_nitida")->focusPoint().has_value());

        // The filter bar hides what the photographer does not want to see.
        auto *combo = s.window.findChild<QComboBox *>("sharpFilter");
        QVERIFY(combo);
        combo->setCurrentIndex(2);   // "Nítidas"
        QCOMPARE(s.visibleNames(), QStringList{"a_nitida"});
        combo->setCurrentIndex(1);   // "Desenfocadas"
        QCOMPARE(s.visibleNames(), (QStringList{"c_movida", "d_barrida"}));

        // A looser sensitivity, chosen in the settings window, lets the doubtful shot through.
        combo->setCurrentIndex(2);
        SettingsDialog settings(s.state, nullptr, &s.window);
        settings.sensitivityCombo()->setCurrentIndex(settings.sensitivityCombo()->findData("loose"));
        QCOMPARE(s.state.sensitivity(), SharpSensitivity::loose);
        QCOMPARE(s.visibleNames(), (QStringList{"a_nitida", "b_dudosa"}));
        settings.sensitivityCombo()->setCurrentIndex(settings.sensitivityCombo()->findData("normal"));
        QCOMPARE(s.visibleNames(), QStringList{"a_nitida"});
        combo->setCurrentIndex(0);
    }

    void commandLineAgreesFromTheCacheFile()
    {
        // Another process reads what the window measured from the cache file and gives the same
        // verdicts; a file changed since is measured again.
        QVERIFY(QFile::exists(SharpnessCache::shared().url()));
        QVERIFY(QFile::copy(_folder + "/c_movida.jpg", _folder + "/e_copia.jpg"));
        const CorvaneRun run = corvane({"sharpness", "--json", _folder});
        QCOMPARE(run.status, 0);
        QMap<QString, int> levels;
        for (const QJsonValue &v : QJsonDocument::fromJson(run.out).array())
            levels.insert(v["file"].toString(), v["level"].toInt());
        QCOMPARE(levels.value("a_nitida.jpg"), int(SharpSharp));
        QCOMPARE(levels.value("b_dudosa.jpg"), int(SharpDoubtful));
        QCOMPARE(levels.value("c_movida.jpg"), int(SharpBlurry));
        QCOMPARE(levels.value("d_barrida.jpg"), int(SharpBlurry));
        QCOMPARE(levels.value("e_copia.jpg"), int(SharpBlurry));
        QVERIFY(QFile::remove(_folder + "/e_copia.jpg"));
    }
};

QTEST_MAIN(TestSharpnessWindow)
#include "tst_sharpnesswindow.moc"
