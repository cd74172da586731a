#pragma once

#include <QIcon>
#include <QString>

#include <memory>

class QWidget;

// What the preferences window asks of a pane. The window knows nothing of a
// pane's contents: it shows the pane's view, names the toolbar entry after the
// pane and sizes itself to the view.
//
// The pane owns its view; the window only borrows it while it is shown. The
// view's content size is the size the pane gave it (resize()), or else its
// size hint, taken the first time the pane is shown.
//
// Kept by the name it has always had, though it is an interface, not a controller.
class PreferencesWindowControllerProtocol
{
public:
    virtual ~PreferencesWindowControllerProtocol() = default;

    // The pane's content. Must not be null; the same widget on every call.
    virtual QWidget *preferenceView() = 0;

    // Unique among the panes; also the identifier of the pane's toolbar item.
    virtual QString preferenceIdentifier() const = 0;
    // Toolbar label, segment label and window title.
    virtual QString preferenceTitle() const = 0;
    virtual QIcon preferenceIcon() const = 0;

    // Optional: a pane that has a tool tip answers true and returns it.
    virtual bool hasPreferenceToolTip() const { return false; }
    virtual QString preferenceToolTip() const { return QString(); }
};

// Panes are shared between whoever makes them and the controller that shows them.
using PreferencesPane = std::shared_ptr<PreferencesWindowControllerProtocol>;
