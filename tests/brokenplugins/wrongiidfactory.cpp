#include <QObject>

// A proper Qt plug-in, but for some other interface.
class WrongIidFactory : public QObject
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID "org.example.SomethingElse/1.0")
};

#include "wrongiidfactory.moc"
