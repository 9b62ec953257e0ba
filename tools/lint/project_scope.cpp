// A plugin of clang-tidy that turns its checks to the declarations of this project. Without it they
// walk through every declaration of the libraries' headers too, which takes most of a run, and what
// they would find there is not shown. The analyser is not touched by it: it starts at function
// bodies of the source alone.
#include <clang/AST/ASTConsumer.h>
#include <clang/AST/ASTContext.h>
#include <clang/AST/DeclGroup.h>
#include <clang/Frontend/CompilerInstance.h>
#include <clang/Frontend/FrontendPluginRegistry.h>

#include <memory>
#include <string>
#include <vector>

namespace {

class ProjectScope : public clang::ASTConsumer {
 public:
  bool HandleTopLevelDecl(clang::DeclGroupRef group) override {
    for (clang::Decl *declaration : group)
      if (is_of_project(*declaration)) declarations_.push_back(declaration);
    return true;
  }

  // Comes before the checks get to see the source.
  void HandleTranslationUnit(clang::ASTContext &context) override {
    context.setTraversalScope(declarations_);
  }

 private:
  // What a template was made into is passed here too; it is found below the template.
  static bool is_of_project(const clang::Decl &declaration) {
    const clang::SourceManager &sources = declaration.getASTContext().getSourceManager();
    return declaration.getLexicalDeclContext()->isTranslationUnit() &&
           !sources.isInSystemHeader(declaration.getLocation());
  }

  std::vector<clang::Decl *> declarations_;
};

class Action : public clang::PluginASTAction {
 protected:
  std::unique_ptr<clang::ASTConsumer> CreateASTConsumer(clang::CompilerInstance & /*compiler*/,
                                                        llvm::StringRef /*source*/) override {
    return std::make_unique<ProjectScope>();
  }
  bool ParseArgs(const clang::CompilerInstance & /*compiler*/,
                 const std::vector<std::string> & /*given*/) override {
    return true;
  }
  ActionType getActionType() override { return AddBeforeMainAction; }
};

const clang::FrontendPluginRegistry::Add<Action> added("project-scope",
                                                       "look at this project's declarations alone");

}  // namespace
